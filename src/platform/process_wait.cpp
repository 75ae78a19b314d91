#include <poll.h>

#include <cerrno>

#include "platform/error.h"
#include "platform/exit_code.h"
#include "platform/no_cancellation.h"
#include "platform/orphans.h"
#include "platform/process.h"
#include "platform/thread.h"

namespace qv::platform
{

namespace
{

DWORD FailWait(DWORD error)
{
    SetLastError(error);
    return WAIT_FAILED;
}

BOOL Answer(DWORD error)
{
    if (error != ERROR_SUCCESS) {
        SetLastError(error);
    }
    return error == ERROR_SUCCESS ? kTrue : kFalse;
}

// 0, or an error number.
DWORD PollForEver(pollfd* entries, nfds_t count)
{
    const KeepErrno keep;
    const NoCancellation noCancellation;
    while (poll(entries, count, -1) < 0) {
        if (errno != EINTR) {
            return ErrorFromErrno(errno);
        }
    }
    return ERROR_SUCCESS;
}

} // namespace

DWORD WaitForSingleObject(const HeldProcess& process)
{
    Orphans::Sweep();
    if (const DWORD error = process.State()) {
        return FailWait(error);
    }
    constexpr Descriptor kOwnProcess = -1;
    if (process.Number() == kOwnProcess) {
        return FailWait(ERROR_POSSIBLE_DEADLOCK);
    }
    const DWORD error = AwaitEnd(process.Number());
    return error == ERROR_SUCCESS ? WAIT_OBJECT_0 : FailWait(error);
}

DWORD WaitForMultipleObjects(DWORD count, const HeldProcess* processes)
{
    Orphans::Sweep();
    pollfd entries[MAXIMUM_WAIT_OBJECTS];
    if (count > MAXIMUM_WAIT_OBJECTS) {
        return FailWait(ERROR_INVALID_PARAMETER);
    }
    for (;;) {
        DWORD left = 0;
        for (DWORD i = 0; i < count; ++i) {
            const bool isThere = processes[i].State() == ERROR_SUCCESS;
            left += isThere ? 1 : 0;
            entries[i] = {isThere ? processes[i].Number() : -1, POLLIN, 0};
        }
        if (left == 0) {
            return FailWait(ERROR_INVALID_PARAMETER);
        }
        if (const DWORD error = PollForEver(entries, count)) {
            return FailWait(error);
        }
        for (DWORD i = 0; i < count; ++i) {
            if (entries[i].revents != 0 && processes[i].State() == ERROR_SUCCESS) {
                AwaitEnd(processes[i].Number()); // what is none shows when its code is asked for
                return WAIT_OBJECT_0 + i;
            }
        }
    }
}

BOOL GetExitCodeProcess(HeldProcess& process, DWORD* code)
{
    Orphans::Sweep();
    return Answer(process.TakeCode(code));
}

BOOL CloseHandle(HeldProcess& process)
{
    const BOOL isClosed = Answer(process.GiveUp());
    Orphans::Sweep();
    return isClosed;
}

} // namespace qv::platform
