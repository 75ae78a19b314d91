#include "platform/named_semaphore.h"

#include <memory>
#include <new>

#include "platform/error.h"
#include "platform/futex.h"
#include "platform/security.h"

namespace qv::platform
{

namespace
{

constexpr DWORD kAllAccess = 0x1F0003;
constexpr DWORD kSlice = 200; // ms

} // namespace

DWORD NamedSemaphore::Open(const SECURITY_ATTRIBUTES* attributes, LONG initialCount,
                           LONG maximumCount, const char* name)
{
    ObjectName wide;
    if (const DWORD error = wide.Widen(name)) {
        return error;
    }
    const DWORD result = m_object.Open({
        .name = wide.Units(),
        .kind = NamedKind::Semaphore,
        .mayCreate = true,
        .audience = AudienceOf(DescriptorOf(attributes), kAllAccess),
        .content = {.dataSize = 0,
                    .limit = static_cast<std::uint32_t>(maximumCount),
                    .word = static_cast<std::uint32_t>(initialCount)},
    });
    if (const NamedHead* const head = m_object.Head()) {
        // Read once: nobody can change it under a post.
        m_maximum = CountOf(head->limit);
    }
    return result;
}

DWORD NamedSemaphore::Post(LONG count, LONG* previousCount)
{
    NamedHead* const head = m_object.Head();
    if (head == nullptr) {
        return ERROR_INVALID_HANDLE;
    }
    std::atomic<std::uint32_t>& word = head->word;
    const auto added = static_cast<std::uint32_t>(count);
    std::uint32_t seen = word.load(std::memory_order_relaxed);
    do {
        // Also of a count above the maximum, which nobody but a broken process leaves.
        if (CountOf(seen) > m_maximum || added > m_maximum - CountOf(seen)) {
            return ERROR_TOO_MANY_POSTS;
        }
    } while (!word.compare_exchange_weak(seen, seen + added));
    if (previousCount != nullptr) {
        *previousCount = static_cast<LONG>(CountOf(seen));
    }
    if ((seen & kMaySleep) != 0 && SharedFutexWake(&word, count) == 0) {
        // Only if nothing has happened since: nobody falls asleep beside a unit.
        std::uint32_t posted = seen + added;
        word.compare_exchange_strong(posted, CountOf(posted));
    }
    return ERROR_SUCCESS;
}

DWORD NamedSemaphore::Wait(const Deadline& deadline)
{
    NamedHead* const head = m_object.Head();
    if (head == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    std::atomic<std::uint32_t>& word = head->word;
    std::uint32_t seen = word.load(std::memory_order_relaxed);
    if (Take(word, seen, 0)) {
        return WAIT_OBJECT_0;
    }
    while (!deadline.HasPassed()) {
        if (seen == kMaySleep || word.compare_exchange_strong(seen, kMaySleep)) {
            SharedFutexWaitUntil(word, kMaySleep, deadline.OrAfter(kSlice));
            seen = word.load(std::memory_order_relaxed);
        }
        if (Take(word, seen, kMaySleep)) {
            // The bit may have been taken away wrongly, just as somebody fell asleep, and a post
            // have kept silent.
            if (CountOf(seen) > 1) {
                SharedFutexWake(&word, 1);
            }
            return WAIT_OBJECT_0;
        }
    }
    return WAIT_TIMEOUT;
}

bool NamedSemaphore::Take(std::atomic<std::uint32_t>& word, std::uint32_t& seen,
                          std::uint32_t marks)
{
    while (CountOf(seen) != 0) {
        if (word.compare_exchange_weak(seen, (seen - 1) | marks)) {
            return true;
        }
    }
    return false;
}

HANDLE OpenNamedSemaphore(const SECURITY_ATTRIBUTES* attributes, LONG initialCount,
                          LONG maximumCount, const char* name)
{
    std::unique_ptr<NamedSemaphore> semaphore(new (std::nothrow) NamedSemaphore);
    const DWORD result = semaphore != nullptr
                             ? semaphore->Open(attributes, initialCount, maximumCount, name)
                             : ERROR_OUTOFMEMORY;
    SetLastError(result);
    const bool isOpen = result == ERROR_SUCCESS || result == ERROR_ALREADY_EXISTS;
    return isOpen ? semaphore.release() : nullptr;
}

} // namespace qv::platform
