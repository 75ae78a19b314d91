// Threads, and what a thread asks and sets for itself.
#pragma once

#include "platform/wait.h"

namespace qv::platform
{

// A thread that waits for itself, or for one that waits for it.
inline constexpr DWORD ERROR_POSSIBLE_DEADLOCK = 1131;
inline constexpr DWORD STILL_ACTIVE = 259;

// The calling thread's id; 0 until somebody asks for it.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local DWORD t_threadId;

extern "C"
{
    // Runs the routine in a new thread, whose exit code it returns. Gives the handle as a number,
    // 0 on failure. The id is there when the call returns, also if the thread has ended by then. A
    // stack size of 0 means the default; any other is rounded up to whole megabytes, as the stack
    // that it reserves on its own platform is never smaller. Security and flags are null and 0.
    std::uintptr_t _beginthreadex(void* security, unsigned stackSize, unsigned (*routine)(void*),
                                  void* argument, unsigned flags, unsigned* id);
    // STILL_ACTIVE while the thread runs. A thread that ended by pthread_exit has the low 32 bits
    // of its value, a cancelled one all bits set.
    BOOL GetExitCodeThread(HANDLE thread, DWORD* exitCode);

    // The kernel's id of the calling thread. No system call but the first time.
    DWORD GetCurrentThreadId();

    BOOL SwitchToThread();
    void Sleep(DWORD milliseconds);

    // For the calling thread only. Gives the mask before; 0 on failure. The processor numbered i is
    // bit i mod 32. A mask of 0, or with a processor that the process did not start with: 87.
    std::uintptr_t SetThreadAffinityMask(HANDLE thread, std::uintptr_t mask);
}

// The same, without a call where the id is known.
inline DWORD CurrentThreadId()
{
    const DWORD id = t_threadId;
    return id != 0 ? id : GetCurrentThreadId();
}

// At load: the processors that the main thread may run on are the process's.
void TakeProcessors();

// In a forked child: its only thread has a new id, and threads of the parent are none of its own.
void ForgetThreads();

} // namespace qv::platform
