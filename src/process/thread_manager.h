// The table of the process's threads.
#pragma once

#include <qvcore6/result.h>

#include <cstdint>
#include <map>

#include "locks/lock_guard.h"
#include "process/thread_data.h"

class CQVThreadManager
{
public:
    using Record = qv::core::RefPtr<CQVThreadData>;

    // Adopts the calling thread, which is the one that loads the library.
    CQVThreadManager();

    // Null if there is none.
    Record Find(std::uint32_t id) const;
    // A record that is there already is that of a thread that has ended: ids are given out again.
    void Add(std::uint32_t id, qv::platform::HANDLE handle);
    // For a thread that nobody has heard of yet.
    void Remove(std::uint32_t id);

    // Each takes the record out if the other has happened. A joined thread's id may be another's
    // by the time it is marked, so that mark is for this record alone.
    void MarkDetached(std::uint32_t id, CQVThreadData& thread);
    void MarkFinished(std::uint32_t id);

    // The record of a thread that nobody has given up, whose handle stays open until the use ends.
    // Throws E_HANDLE if there is none.
    Record BeginUse(std::uint32_t id);
    // The last one out closes the handle of a thread that is given up. E_HANDLE for somebody who
    // gives up a thread that another one has given up meanwhile; else the code of the closing.
    QVRESULT EndUse(CQVThreadData& thread, bool givesUp);

    // Around a fork, by the thread that forks. The child's table begins anew, with its only thread
    // adopted: there is nothing in the child to join.
    void PrepareFork();
    void ParentAfterFork();
    void ChildAfterFork();

private:
    using Map = std::map<std::uint32_t, Record>;

    void EraseIfOver(std::uint32_t id, const CQVThreadData& thread);

    // Recursive: marking and erasing look up under it. Held for moments.
    qv::core::OwnedMutex m_mapMutex{"CQVThreadManager::m_mapMutex", 0};
    Map m_map; // under m_mapMutex
};
