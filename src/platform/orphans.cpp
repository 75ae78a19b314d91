#include "platform/orphans.h"

#include <pthread.h>
#include <sys/epoll.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <ctime>
#include <utility>

#include "platform/descriptor_handle.h"
#include "platform/error.h"
#include "platform/exit_code.h"
#include "platform/no_cancellation.h"
#include "platform/section_hold.h"

namespace qv::platform
{

namespace
{

// All under the lock of the processes.
constinit ProcessRecord* g_first = nullptr;
constinit std::size_t g_watched = 0;
constinit std::atomic<std::size_t> g_unwatched{0}; // is also read without it
constinit int g_set = -1;                          // what the thread waits for, while it runs
constinit bool g_hasThread = false;                // which has not been joined
constinit pthread_t g_thread{};

void CloseSet()
{
    CloseDescriptor(std::exchange(g_set, -1));
}

bool StartThread(void* (*routine)(void*))
{
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    // A host may have all memory locked.
    constexpr std::size_t kStack = std::size_t{256} * 1024;
    pthread_attr_setstacksize(&attributes, kStack);
    sigset_t all;
    sigfillset(&all); // the host's handlers run in the host's threads
    g_hasThread = pthread_attr_setsigmask_np(&attributes, &all) == 0 &&
                  pthread_create(&g_thread, &attributes, routine, nullptr) == 0;
    pthread_attr_destroy(&attributes);
    return g_hasThread;
}

// The only place where the thread can be cancelled, which is how it is stopped: it needs nothing
// that a host could close.
int AwaitEnds(int set, epoll_event* ends, int room)
{
    int state;
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &state);
    const int count = epoll_wait(set, ends, room, -1);
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
    return count;
}

} // namespace

template <class Test> void Orphans::Remove(Test test)
{
    ProcessRecord* next = std::exchange(g_first, nullptr);
    while (ProcessRecord* const orphan = next) {
        next = orphan->m_nextOrphan;
        if (test(*orphan)) {
            if (orphan->m_isWatched) {
                --g_watched;
            } else {
                g_unwatched.fetch_sub(1, std::memory_order_relaxed);
            }
            const auto hold = RecordHold<ProcessRecord>::Adopt(orphan);
            orphan->EndUse();
        } else {
            orphan->m_nextOrphan = std::exchange(g_first, orphan);
        }
    }
}

void Orphans::Add(ProcessRecord& child)
{
    ++child.m_uses;
    RecordHold<ProcessRecord>(&child).Release();
    child.m_nextOrphan = std::exchange(g_first, &child);
    child.m_isWatched = Watch(child);
    if (child.m_isWatched) {
        ++g_watched;
    } else {
        g_unwatched.fetch_add(1, std::memory_order_relaxed);
    }
}

// Of a number that the host has given to another process nothing is asked.
bool Orphans::HasGone(const ProcessRecord& orphan)
{
    return !orphan.IsInPlace() || ReapIfEnded(orphan.m_process);
}

bool Orphans::Watch(ProcessRecord& child)
{
    const bool isFirst = g_set < 0;
    if (isFirst) {
        JoinEndedThread();
        g_set = AboveStandardNumbers(epoll_create1(EPOLL_CLOEXEC));
        if (g_set < 0) {
            return false;
        }
    }
    epoll_event end = {};
    end.events = EPOLLIN;
    end.data.ptr = &child;
    bool isWatched = epoll_ctl(g_set, EPOLL_CTL_ADD, child.m_process, &end) == 0;
    if (isFirst && isWatched) {
        isWatched = StartThread(&RunThread);
    }
    if (isFirst && !isWatched) {
        CloseSet();
    }
    return isWatched;
}

// It has left the lock for good.
void Orphans::JoinEndedThread()
{
    if (g_set < 0 && std::exchange(g_hasThread, false)) {
        pthread_join(g_thread, nullptr);
    }
}

void* Orphans::RunThread(void* /*unused*/)
{
    const NoCancellation noCancellation;
    pthread_setname_np(pthread_self(), "qvcore6-orphans");
    const int set = g_set;
    for (;;) {
        constexpr int kRoom = 16;
        epoll_event ends[kRoom];
        const int count = AwaitEnds(set, ends, kRoom);
        switch (Take(ends, count, count >= 0 || errno == EINTR)) {
        case Next::Await:
            break;
        case Next::Pause: {
            constexpr timespec kPause = {.tv_sec = 0, .tv_nsec = 20'000'000};
            nanosleep(&kPause, nullptr);
            break;
        }
        case Next::End:
            return nullptr;
        }
    }
}

Orphans::Next Orphans::Take(const epoll_event* ends, int count, bool isOurs)
{
    const SectionHold locked(&g_processesLock);
    Next next = Next::Await;
    for (int i = 0; i < count; ++i) {
        auto& orphan = *static_cast<ProcessRecord*>(ends[i].data.ptr);
        if (HasGone(orphan)) {
            // Not left to the close: a forked child may have the same open file.
            isOurs = epoll_ctl(g_set, EPOLL_CTL_DEL, orphan.m_process, nullptr) == 0 && isOurs;
            Remove([&](const ProcessRecord& other) { return &other == &orphan; });
        } else {
            next = Next::Pause; // a debugger is to hear of it first
        }
    }
    if (!isOurs) {
        Abandon();
        return Next::End;
    }
    if (g_watched == 0) {
        CloseSet();
        return Next::End;
    }
    return next;
}

// The host has closed the set, and its number may be another file's.
void Orphans::Abandon()
{
    g_set = -1;
    g_unwatched.fetch_add(std::exchange(g_watched, 0), std::memory_order_relaxed);
    for (ProcessRecord* orphan = g_first; orphan != nullptr; orphan = orphan->m_nextOrphan) {
        orphan->m_isWatched = false;
    }
}

void Orphans::Sweep()
{
    if (g_unwatched.load(std::memory_order_relaxed) == 0) {
        return;
    }
    const SectionHold locked(&g_processesLock);
    Remove([](const ProcessRecord& orphan) { return !orphan.m_isWatched && HasGone(orphan); });
}

void Orphans::StopThread()
{
    bool isThere = false;
    pthread_t thread{};
    {
        const SectionHold locked(&g_processesLock);
        isThere = std::exchange(g_hasThread, false);
        thread = g_thread;
    }
    if (!isThere) {
        return;
    }
    pthread_cancel(thread);
    pthread_join(thread, nullptr);
    const SectionHold locked(&g_processesLock);
    if (g_set >= 0) {
        CloseSet();
        Abandon();
    }
}

void Orphans::Forget()
{
    const SectionHold locked(&g_processesLock);
    Remove([](const ProcessRecord&) { return true; });
}

void Orphans::ForgetInChild()
{
    g_hasThread = false;
    if (g_set >= 0) {
        CloseSet();
    }
    Remove([](ProcessRecord& orphan) {
        orphan.m_uses = 1; // its own; the others were those of threads that are not here
        return true;
    });
}

} // namespace qv::platform
