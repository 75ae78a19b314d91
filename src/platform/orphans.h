// Children that are given up and run on. Each keeps its record and its descriptor until it has
// ended, as the system wants to be asked for each child once.
//
// A thread waits for their ends. It is there only while there are such children, so a process that
// gives up none never has it. Where the system refuses it, the calls of process.h look after them.
#pragma once

#include "platform/held_process.h"

struct epoll_event;

namespace qv::platform
{

class Orphans
{
public:
    // With the lock of the processes held.
    static void Add(ProcessRecord& child);
    // Before a fork, which leaves the child no thread to be joined.
    static void JoinEndedThread();
    // In a forked child, likewise: they are none of its own.
    static void ForgetInChild();

    // Gives back to the system those that have ended and that the thread does not know of.
    static void Sweep();
    // At the end of the process or of this module. Those that still run are the host's then.
    static void StopThread();
    static void Forget();

private:
    enum class Next
    {
        Await,
        Pause,
        End,
    };

    static bool HasGone(const ProcessRecord& orphan);
    static bool Watch(ProcessRecord& child);
    static void* RunThread(void* unused);
    // What the thread has been told. isOurs is false if the set is no longer there.
    static Next Take(const epoll_event* ends, int count, bool isOurs);
    static void Abandon();
    // Lets go of those for whom the test is true.
    template <class Test> static void Remove(Test test);
};

} // namespace qv::platform
