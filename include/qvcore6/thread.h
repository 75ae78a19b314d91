/*
 * Threads: start, wait for, let go of.
 *
 * A thread is known by the system's id of it, a small number that one may log and compare. Whoever
 * creates a thread owes it one QVThreadJoin or one QVThreadDetach; until then the library keeps its
 * exit code and the system its stack. The library knows the threads that it created and one more,
 * the first thread, which loaded it; it starts none of its own.
 *
 *     uint32_t Count(void* argument)
 *     {
 *         ++*(long*)argument;
 *         return 7;
 *     }
 *
 *     long counter = 0;
 *     QVThread thread;
 *     uint32_t id, exitCode;
 *     if (QVThreadCreate(Count, &counter, 0, 0, &thread, &id) < 0) {
 *         return;
 *     }
 *     QVThreadJoin(thread, &exitCode); // counter is 1, exitCode is 7
 *
 * Guaranteed: what was written before QVThreadCreate is seen by the new thread, and what a thread
 * wrote is seen after a join of it. A join returns when the thread is gone, destructors of its
 * thread-local objects included: what it ran in may be unloaded then. Any thread may call any
 * function. Not guaranteed: that a detached thread is gone at a given time; whoever unloads code
 * that it runs in has to know by other means.
 *
 * The system gives out the id of a thread that has ended again. So use an id only until you have
 * joined or detached the thread: afterwards it may stand for a newer one.
 *
 * An exception that an entry function lets out ends the process by std::terminate, as with
 * std::thread. A thread may also end by pthread_exit or be cancelled. It is joined as usual and has
 * the low 32 bits of its pthread_exit value, or 0xFFFFFFFF, as its exit code; but its entry in the
 * library's table stays until its id is used again, and QVThreadIsFinished never says 1 for it. Do
 * not join or detach a thread of the library's by pthread functions.
 *
 * A forked child has one thread, which is its first thread. The parent's threads are unknown there.
 */
#ifndef QVCORE6_THREAD_H
#define QVCORE6_THREAD_H

#include <qvcore6/base.h>

/* A thread: the system's id of it (gettid); QV_THREAD_NONE stands for none. */
typedef uint32_t QVThread;
#define QV_THREAD_NONE 0xFFFFFFFFu

/* What a thread runs. It returns the exit code. */
typedef uint32_t (*QVThreadEntry)(void* argument);

QV_BEGIN_DECLS

/*
 * Starts a thread that calls entry(argument). *threadOut and *idOut receive the same id; *idOut has
 * it before the entry function runs, *threadOut possibly not until it has returned. Neither may be
 * null. After a failure they are QV_THREAD_NONE and 0, and the entry function has not run.
 *
 * stackSize is in bytes, rounded up to whole megabytes; 0 means the system's default. The memory is
 * used only as far as the stack grows. reserved has no effect. The thread inherits the caller's
 * signal mask, processors and scheduling, which is the default of the system's threads.
 *
 * S_OK; E_OUTOFMEMORY; E_FAIL if the system has no room for another thread or such a stack, or if
 * the library could not start in this process.
 */
QV_EXPORT QVRESULT QVThreadCreate(QVThreadEntry entry, void* argument, uint32_t reserved,
                                  uint32_t stackSize, QVThread* threadOut, uint32_t* idOut);

/*
 * Waits, without a limit, until the thread is gone, and gives it up. *exitCodeOut, which may be
 * null, receives its exit code, and 0 with every failure but that of closing.
 *
 * S_OK: the thread is yours no more.
 * E_HANDLE: the library has no such thread, or somebody else has given it up. If that happened
 * while this call waited, it has waited to the thread's end all the same; so of several joins at
 * once one gets S_OK and the exit code.
 * E_NOTIMPL: the first thread. It was there before the library, which cannot wait for it.
 * E_FAIL: the caller itself, or a wait that the system refused. The thread can still be joined.
 *
 * Threads that join each other may wait for ever. A cancelled join leaves the thread to be joined.
 */
QV_EXPORT QVRESULT QVThreadJoin(QVThread thread, uint32_t* exitCodeOut);

/*
 * Gives the thread up without waiting; its exit code is lost. The thread runs on, and what it holds
 * goes back to the system at its end.
 * S_OK; E_HANDLE if the library has no such thread or it has been given up already. For the first
 * thread S_OK, without effect.
 */
QV_EXPORT QVRESULT QVThreadDetach(QVThread thread);

/*
 * 1 if the library has no such thread, so also for one that has been joined, or detached and then
 * returned from its entry function, and for any other number. 0 otherwise, also for a thread that
 * has returned but waits to be joined or detached, and for the first thread. The answer can be old
 * by the time it is read.
 */
QV_EXPORT int16_t QVThreadIsFinished(QVThread thread);

/* The calling thread's id. No system call but the first time in a thread. */
QV_EXPORT QVThread QVThreadGetID(void);

/* A number that stands for the calling thread in each thread: -2. Not a QVThread. */
QV_EXPORT intptr_t QVThreadGetHandle(void);

/* Lets another thread that is ready run on this processor first, if there is one. S_OK. */
QV_EXPORT QVRESULT QVThreadYield(void);

/*
 * Sleeps at least so many milliseconds of the monotonic clock, whatever signals arrive. 0 is
 * QVThreadYield; 0xFFFFFFFF never returns.
 */
QV_EXPORT void QVSleep(uint32_t milliseconds);

/*
 * Sets the processors that the calling thread may run on: processor i is bit i mod 32 of *mask.
 * S_OK; E_FAIL if the mask is 0 or has a bit without a processor among those that the process could
 * use when the library was loaded; E_ACCESSDENIED or E_FAIL if the system refuses. Then nothing
 * changes.
 */
QV_EXPORT QVRESULT QVSetCpuAffinity(const uint32_t* mask);

/*
 * The same, and stores the mask before in *previousOut, 0 after a failure. The two arguments may
 * point to one place.
 */
QV_EXPORT QVRESULT QVGetSetCpuAffinity(uint32_t* previousOut, const uint32_t* mask);

QV_END_DECLS

#endif
