#include "platform/named_object.h"

#include <sched.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <utility>

#include "platform/deadline.h"
#include "platform/error.h"
#include "platform/no_cancellation.h"
#include "platform/section_hold.h"

namespace qv::platform
{

namespace
{

// Held while an object is opened or given up, and around a fork: a child with a copy of a half
// opened file would keep the object alive for ever. Never held while waiting for another process.
constinit CRITICAL_SECTION g_lock{};
constinit NamedObject* g_first = nullptr;

// The gate is held for some microseconds. One that stays shut belongs to a process that has been
// stopped, or is hostile; a left-over name is less harm than a close that hangs.
constexpr DWORD kOpenPatience = 10'000;
constexpr DWORD kClosePatience = 1'000;

void PauseBefore(unsigned round)
{
    constexpr unsigned kYields = 8;
    constexpr unsigned kDoublings = 7;
    if (round < kYields) {
        sched_yield();
        return;
    }
    const timespec pause = {.tv_sec = 0,
                            .tv_nsec = 40'000 << std::min(round - kYields, kDoublings)};
    nanosleep(&pause, nullptr);
}

// Repeats attempt() while it gives kTryAgain; 32 when that took too long.
template <class Attempt> DWORD Persist(DWORD patience, Attempt attempt)
{
    const Deadline deadline = Deadline::After(patience);
    for (unsigned round = 0;; ++round) {
        DWORD result;
        {
            const SectionHold locked(&g_lock);
            result = attempt();
        }
        if (result != kTryAgain) {
            return result;
        }
        if (deadline.HasPassed()) {
            return ERROR_SHARING_VIOLATION;
        }
        PauseBefore(round);
    }
}

// The way in: the gate is held, and the file is the one at the path.
DWORD EnterGate(const ObjectFile& file, const ObjectPath& path)
{
    if (const DWORD error = file.LockForWriting(ObjectByte::Gate)) {
        return error;
    }
    return file.IsAt(path) ? ERROR_SUCCESS : kTryAgain;
}

// 0 when there is nothing at the path that nobody holds, as far as this user may see to that.
DWORD RemoveLeftOver(const ObjectPath& path)
{
    ObjectFile file;
    if (file.Open(path) != ERROR_SUCCESS) {
        return ERROR_SUCCESS;
    }
    if (const DWORD error = EnterGate(file, path)) {
        return error;
    }
    if (file.LockForWriting(ObjectByte::Life) == ERROR_SUCCESS) {
        unlink(path.Text());
    }
    return ERROR_SUCCESS;
}

} // namespace

DWORD NamedObject::Open(const NamedRequest& request)
{
    const KeepErrno keep;
    const NoCancellation noCancellation;
    if (const DWORD error = m_path.Make(request.name)) {
        return error;
    }
    return Persist(kOpenPatience, [&] { return TryOpen(request); });
}

void NamedObject::Close()
{
    if (m_head == nullptr) {
        return;
    }
    const KeepErrno keep;
    const NoCancellation noCancellation;
    {
        const SectionHold locked(&g_lock);
        GiveUp();
    }
    // By a look from outside: forked children may share the file that has just been given up, and
    // a lock of one's own file would not see them.
    Persist(kClosePatience, [&] { return RemoveLeftOver(m_path); });
}

DWORD NamedObject::TryOpen(const NamedRequest& request)
{
    ObjectFile file;
    const DWORD found = file.Open(m_path);
    if (found == ERROR_FILE_NOT_FOUND) {
        return request.mayCreate ? Create(request) : ERROR_FILE_NOT_FOUND;
    }
    if (found != ERROR_SUCCESS) {
        return found;
    }
    if (const DWORD error = EnterGate(file, m_path)) {
        return error;
    }
    const DWORD life = file.LockForWriting(ObjectByte::Life);
    if (life == kTryAgain) {
        return Join(std::move(file), request);
    }
    return life == ERROR_SUCCESS ? TakeOver(std::move(file), request) : life;
}

DWORD NamedObject::Create(const NamedRequest& request)
{
    ObjectFile file;
    if (const DWORD error =
            file.Make(request.audience, request.name, request.kind, request.content)) {
        return error;
    }
    if (const DWORD error = file.LockForReading(ObjectByte::Life)) {
        return error;
    }
    NamedHead* const head = file.MapHead();
    if (head == nullptr) {
        return ERROR_OUTOFMEMORY;
    }
    // Last: from here on others find it.
    if (const DWORD error = file.Link(m_path)) {
        munmap(head, kNamedHeadSize);
        return error;
    }
    Hold(std::move(file), head);
    return ERROR_SUCCESS;
}

DWORD NamedObject::Join(ObjectFile&& file, const NamedRequest& request)
{
    if (const DWORD error = file.LockForReading(ObjectByte::Life)) {
        return error;
    }
    if (const DWORD error = file.Test(request.name, request.kind)) {
        return error;
    }
    NamedHead* const head = file.MapHead();
    if (head == nullptr) {
        return ERROR_OUTOFMEMORY;
    }
    Hold(std::move(file), head);
    return ERROR_ALREADY_EXISTS;
}

DWORD NamedObject::TakeOver(ObjectFile&& file, const NamedRequest& request)
{
    if (unlink(m_path.Text()) == 0) {
        return kTryAgain;
    }
    if (!request.mayCreate) {
        return ERROR_FILE_NOT_FOUND;
    }
    // Another user's, who decides on its rights: of use only if others are to have them.
    if (request.audience == Audience::Nobody) {
        return ERROR_ACCESS_DENIED;
    }
    if (const DWORD error = file.Fill(request.name, request.kind, request.content)) {
        return error;
    }
    NamedHead* const head = file.MapHead();
    if (head == nullptr) {
        return ERROR_OUTOFMEMORY;
    }
    if (const DWORD error = file.LockForReading(ObjectByte::Life)) {
        munmap(head, kNamedHeadSize);
        return error;
    }
    Hold(std::move(file), head);
    return ERROR_SUCCESS;
}

void NamedObject::Hold(ObjectFile&& file, NamedHead* head)
{
    file.Unlock(ObjectByte::Gate);
    // The mapping alone holds the file, and its locks: there is no descriptor that could run out,
    // or that a host which closes all that it does not know could give to another file.
    close(file.Release());
    m_head = head;
    m_next = g_first;
    m_previous = nullptr;
    if (g_first != nullptr) {
        g_first->m_previous = this;
    }
    g_first = this;
}

void NamedObject::GiveUp()
{
    (m_previous != nullptr ? m_previous->m_next : g_first) = m_next;
    if (m_next != nullptr) {
        m_next->m_previous = m_previous;
    }
    munmap(std::exchange(m_head, nullptr), kNamedHeadSize);
}

void CloseNamedObjects()
{
    while (g_first != nullptr) {
        g_first->Close();
    }
}

void HoldNamedObjects()
{
    EnterCriticalSection(&g_lock);
}

void ReleaseNamedObjects()
{
    LeaveCriticalSection(&g_lock);
}

} // namespace qv::platform
