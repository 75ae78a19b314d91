#include "platform/named_mutex.h"

#include <memory>
#include <new>

#include "platform/error.h"
#include "platform/futex.h"
#include "platform/security.h"

namespace qv::platform
{

namespace
{

constexpr DWORD kAllAccess = 0x1F0001;
constexpr DWORD kSlice = 50; // ms

} // namespace

DWORD NamedMutex::Open(const SECURITY_ATTRIBUTES* attributes, bool initialOwner, const char* name)
{
    ObjectName wide;
    if (const DWORD error = wide.Widen(name)) {
        return error;
    }
    const DWORD result = m_object.Open({
        .name = wide.Units(),
        .kind = NamedKind::Mutex,
        .mayCreate = true,
        .audience = AudienceOf(DescriptorOf(attributes), kAllAccess),
        // Before others can find it: its maker has the first slot.
        .content = {.word = initialOwner ? kFirstOwner : kNobody},
    });
    if (result == ERROR_ALREADY_EXISTS) {
        NamedHead* const head = m_object.Head();
        std::uint32_t seen = head->word.load(std::memory_order_relaxed);
        while ((seen & kOwner) == Self() &&
               !head->word.compare_exchange_weak(seen, (seen & ~kOwner) | kDead)) {
        }
    }
    return result;
}

DWORD NamedMutex::Release()
{
    NamedHead* const head = m_object.Head();
    if (head == nullptr) {
        return ERROR_INVALID_HANDLE;
    }
    const std::uint32_t seen = head->word.load(std::memory_order_relaxed);
    if ((seen & kOwner) != Self()) {
        return ERROR_NOT_OWNER;
    }
    if ((head->word.exchange(seen & kTurns, std::memory_order_release) & kMaySleep) != 0) {
        SharedFutexWake(&head->word, 1);
    }
    return ERROR_SUCCESS;
}

DWORD NamedMutex::Wait(const Deadline& deadline)
{
    NamedHead* const head = m_object.Head();
    if (head == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    std::atomic<std::uint32_t>& word = head->word;
    std::uint32_t seen = word.load(std::memory_order_relaxed);
    std::uint32_t marks = 0;
    bool isLong = false;
    for (;;) {
        const std::uint32_t owner = seen & kOwner;
        const bool isFree = owner == kNobody;
        if (isFree || owner == kDead || (isLong && IsDead(owner))) {
            if (Take(word, seen, marks)) {
                return isFree ? WAIT_OBJECT_0 : WAIT_ABANDONED;
            }
            continue;
        }
        if (deadline.HasPassed()) {
            return WAIT_TIMEOUT;
        }
        marks = kMaySleep; // who has slept cannot know whether others still do
        const std::uint32_t asleep = seen | kMaySleep;
        if (seen == asleep || word.compare_exchange_strong(seen, asleep)) {
            // In slices: nobody wakes the waiters of an owner who is killed.
            isLong = !SharedFutexWaitUntil(word, asleep, deadline.OrAfter(kSlice));
            seen = word.load(std::memory_order_relaxed);
        }
    }
}

bool NamedMutex::Take(std::atomic<std::uint32_t>& word, std::uint32_t& seen,
                      std::uint32_t marks) const
{
    const std::uint32_t turn = (seen + kTurn) & kTurns;
    return word.compare_exchange_weak(seen, (seen & kMaySleep) | marks | turn | Self(),
                                      std::memory_order_acquire, std::memory_order_relaxed);
}

bool NamedMutex::IsDead(std::uint32_t owner) const
{
    return owner != Self() && !m_object.IsSlotTaken(owner - 1);
}

HANDLE CreateMutexA(const SECURITY_ATTRIBUTES* attributes, BOOL initialOwner, const char* name)
{
    if (name == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    std::unique_ptr<NamedMutex> mutex(new (std::nothrow) NamedMutex);
    const DWORD result = mutex != nullptr ? mutex->Open(attributes, initialOwner != kFalse, name)
                                          : ERROR_OUTOFMEMORY;
    SetLastError(result);
    const bool isOpen = result == ERROR_SUCCESS || result == ERROR_ALREADY_EXISTS;
    return isOpen ? mutex.release() : nullptr;
}

BOOL ReleaseMutex(HANDLE mutex)
{
    const bool isMutex = IsObject(mutex) && mutex->Kind() == ObjectKind::NamedMutex;
    const DWORD error = isMutex ? static_cast<NamedMutex*>(mutex)->Release() : ERROR_INVALID_HANDLE;
    if (error != ERROR_SUCCESS) {
        SetLastError(error);
    }
    return error == ERROR_SUCCESS ? kTrue : kFalse;
}

} // namespace qv::platform
