#include "platform/named_object.h"

#include <sched.h>
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
constinit unsigned g_forks = 0;
constinit bool g_hasEnded = false;

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
    Deadline deadline = Deadline::After(INFINITE);
    for (unsigned round = 0;; ++round) {
        DWORD result;
        {
            const NamedObjectsHold locked;
            result = attempt();
        }
        if (result != kTryAgain) {
            return result;
        }
        if (round == 0) {
            deadline = Deadline::After(patience);
        } else if (deadline.HasPassed()) {
            return ERROR_SHARING_VIOLATION;
        }
        PauseBefore(round);
    }
}

// The way in: the gate is held, and the file still has a name.
DWORD EnterGate(const ObjectFile& file, FileState* state)
{
    if (const DWORD error = file.LockForWriting(ObjectByte::Gate)) {
        return error;
    }
    if (const DWORD error = file.Look(state)) {
        return error;
    }
    return state->hasName ? ERROR_SUCCESS : kTryAgain;
}

// What nobody holds, with the gate held. Another user's file keeps its name, and only its memory
// goes, but for what threads may be using to the last moment.
void Remove(const ObjectFile& file, const ObjectPath& path, const FileIdentity& identity)
{
    if (file.LockForWriting(ObjectByte::Life) != ERROR_SUCCESS ||
        !ObjectFile::IsAt(path, identity)) {
        return;
    }
    if (unlink(path.Text()) != 0 && !g_hasEnded) {
        file.FreeMemory();
    }
}

} // namespace

DWORD RemoveLeftOver(const ObjectPath& path)
{
    ObjectFile file;
    if (file.Open(path) != ERROR_SUCCESS) {
        return ERROR_SUCCESS;
    }
    FileState state;
    if (const DWORD error = EnterGate(file, &state)) {
        return error;
    }
    Remove(file, path, state.identity);
    return ERROR_SUCCESS;
}

DWORD NamedObject::Open(const NamedRequest& request)
{
    const KeepErrno keep;
    const NoCancellation noCancellation;
    if (const DWORD error = m_path.Make(request.name)) {
        return error;
    }
    const DWORD result = Persist(kOpenPatience, [&] { return TryOpen(request); });
    const bool isHeld = result == ERROR_SUCCESS || result == ERROR_ALREADY_EXISTS;
    if (m_wasHeld && !isHeld) {
        RemoveIfLast();
    }
    return result;
}

void NamedObject::RemoveIfLast(const ObjectPath& path)
{
    const KeepErrno keep;
    const NoCancellation noCancellation;
    // By a look from outside: forked children may share the file that has just been given up, and
    // a lock of one's own file would not see them.
    Persist(kClosePatience, [&] { return RemoveLeftOver(path); });
}

bool NamedObject::TryGiveUp(const ObjectFile& file, const FileIdentity& identity) const
{
    if (m_forks != g_forks) {
        return false;
    }
    file.Unlock(ObjectByte::Life);
    if (file.OthersAt(ObjectByte::Life) != ObjectFile::Others::None) {
        return true;
    }
    if (file.LockForWriting(ObjectByte::Gate) != ERROR_SUCCESS) {
        return false;
    }
    Remove(file, m_path, identity);
    // The file may stay open: at the end, or copied by the start of another process.
    file.Unlock(ObjectByte::Life);
    file.Unlock(ObjectByte::Gate);
    return true;
}

DWORD NamedObject::TryOpen(const NamedRequest& request)
{
    if (g_hasEnded) {
        return ERROR_GEN_FAILURE; // nobody would give it up
    }
    m_forks = g_forks;
    ObjectFile file;
    const DWORD found = file.Open(m_path);
    if (found == ERROR_FILE_NOT_FOUND) {
        return request.mayCreate ? Create(request) : ERROR_FILE_NOT_FOUND;
    }
    if (found != ERROR_SUCCESS) {
        return found;
    }
    if (file.OthersAt(ObjectByte::Life) == ObjectFile::Others::Reading) {
        return Join(std::move(file), request);
    }
    FileState state;
    if (const DWORD error = EnterGate(file, &state)) {
        return error;
    }
    const DWORD life = file.LockForWriting(ObjectByte::Life);
    return life == ERROR_SUCCESS ? TakeOver(std::move(file), state, request) : life;
}

DWORD NamedObject::Create(const NamedRequest& request)
{
    ObjectFile file;
    if (const DWORD error =
            file.Make(request.audience, request.name, request.kind, request.content)) {
        return error;
    }
    FileState state;
    if (const DWORD error = file.Look(&state)) {
        return error;
    }
    if (const DWORD error = file.LockForReading(ObjectByte::Life)) {
        return error;
    }
    if (const DWORD error = Prepare(file, {state.identity, request.content.dataSize})) {
        return error;
    }
    // Last: from here on others find it.
    if (const DWORD error = file.Link(m_path)) {
        Discard();
        return error;
    }
    Keep(std::move(file));
    return ERROR_SUCCESS;
}

DWORD NamedObject::Join(ObjectFile&& file, const NamedRequest& request)
{
    if (const DWORD error = file.LockForReading(ObjectByte::Life)) {
        return error;
    }
    m_wasHeld = true;
    FileState state;
    if (const DWORD error = file.Look(&state)) {
        return error;
    }
    if (!state.hasName) {
        return kTryAgain;
    }
    NamedFacts facts = {state.identity, 0};
    if (const DWORD error = file.Test(request.name, request.kind, state, &facts.dataSize)) {
        return error;
    }
    if (const DWORD error = Prepare(file, facts)) {
        return error;
    }
    Keep(std::move(file));
    return ERROR_ALREADY_EXISTS;
}

DWORD NamedObject::TakeOver(ObjectFile&& file, const FileState& state, const NamedRequest& request)
{
    if (!ObjectFile::IsAt(m_path, state.identity) || unlink(m_path.Text()) == 0) {
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
    if (const DWORD error = Prepare(file, {state.identity, request.content.dataSize})) {
        file.Empty();
        return error;
    }
    if (const DWORD error = file.LockForReading(ObjectByte::Life)) {
        Discard();
        file.Empty();
        return error;
    }
    file.Unlock(ObjectByte::Gate);
    Keep(std::move(file));
    return ERROR_SUCCESS;
}

void EndNamedObjects()
{
    const NamedObjectsHold locked;
    g_hasEnded = true;
}

void HoldNamedObjects()
{
    EnterCriticalSection(&g_lock);
}

void ReleaseNamedObjects()
{
    LeaveCriticalSection(&g_lock);
}

void CountFork()
{
    ++g_forks;
}

} // namespace qv::platform
