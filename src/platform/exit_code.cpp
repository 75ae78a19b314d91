#include "platform/exit_code.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>

#include <cerrno>

#include "platform/error.h"
#include "platform/no_cancellation.h"
#include "platform/thread.h"

namespace qv::platform
{

namespace
{

// What younger kernels tell of a process by its handle. The headers do not know it yet.
struct PidfdInfo
{
    std::uint64_t mask;
    std::uint64_t group;
    std::uint32_t ids[11];
    std::int32_t status; // as wait gives it
};
constexpr std::uint64_t kExitIsKnown = 1 << 3; // in the mask
constexpr unsigned long kGetInfo = _IOWR(0xFF, 11, PidfdInfo);

// A child that nobody has waited for may have become one that does not signal its end.
constexpr int kAnyChild = __WALL;

DWORD CodeOfStatus(int status)
{
    return static_cast<DWORD>(WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status));
}

// The second is for negative numbers.
bool SaysNoProcess(int error)
{
    return error == EBADF || error == EINVAL;
}

// The events that there are, after waiting for those of them that are asked for.
short PollOnce(Descriptor process, short events, int milliseconds)
{
    pollfd entry = {process, events, 0};
    while (poll(&entry, 1, milliseconds) < 0 && errno == EINTR) {
    }
    return entry.revents;
}

// A process that is no child, or is none any more: this process ignores the ends of its children,
// or waits for all of them elsewhere.
DWORD ExitCodeOfOther(Descriptor process)
{
    constexpr int kLongEnough = 100; // milliseconds, from an end to its being on record
    if ((PollOnce(process, POLLIN, 0) & POLLIN) == 0) {
        return STILL_ACTIVE;
    }
    for (const bool isLastTry : {false, true}) {
        PidfdInfo info = {};
        info.mask = kExitIsKnown;
        if (ioctl(process, kGetInfo, &info) != 0) {
            break;
        }
        if ((info.mask & kExitIsKnown) != 0) {
            return CodeOfStatus(info.status);
        }
        if (!isLastTry) {
            PollOnce(process, 0, kLongEnough);
        }
    }
    return kUnknownExitCode;
}

} // namespace

DWORD TakeExitCode(Descriptor process, DWORD* code)
{
    const KeepErrno keep;
    const NoCancellation noCancellation;
    siginfo_t info = {};
    if (waitid(P_PIDFD, static_cast<id_t>(process), &info, WEXITED | WNOHANG | kAnyChild) == 0) {
        const auto status = static_cast<DWORD>(info.si_status);
        *code = info.si_pid == 0             ? STILL_ACTIVE
                : info.si_code == CLD_EXITED ? status
                                             : 128 + status;
        return ERROR_SUCCESS;
    }
    if (SaysNoProcess(errno)) {
        return ERROR_INVALID_HANDLE;
    }
    *code = ExitCodeOfOther(process);
    return ERROR_SUCCESS;
}

DWORD AwaitEnd(Descriptor process)
{
    const KeepErrno keep;
    const NoCancellation noCancellation;
    siginfo_t info = {};
    int result;
    do {
        result = waitid(P_PIDFD, static_cast<id_t>(process), &info, WEXITED | WNOWAIT | kAnyChild);
    } while (result != 0 && errno == EINTR);
    if (result == 0) {
        return ERROR_SUCCESS;
    }
    if (SaysNoProcess(errno)) {
        return ERROR_INVALID_HANDLE;
    }
    // No child.
    return PollOnce(process, POLLIN, -1) != 0 ? ERROR_SUCCESS : ErrorFromErrno(errno);
}

bool IsProcess(Descriptor descriptor)
{
    const KeepErrno keep;
    const NoCancellation noCancellation;
    siginfo_t info = {};
    constexpr int kLook = WEXITED | WNOHANG | WNOWAIT | kAnyChild;
    return waitid(P_PIDFD, static_cast<id_t>(descriptor), &info, kLook) == 0 ||
           !SaysNoProcess(errno);
}

bool ReapIfEnded(Descriptor process)
{
    const KeepErrno keep;
    const NoCancellation noCancellation;
    siginfo_t info = {};
    const int options = WEXITED | WNOHANG | kAnyChild;
    return waitid(P_PIDFD, static_cast<id_t>(process), &info, options) != 0 || info.si_pid != 0;
}

void ReapStillborn(Descriptor process)
{
    const KeepErrno keep;
    const NoCancellation noCancellation;
    siginfo_t info = {};
    while (waitid(P_PIDFD, static_cast<id_t>(process), &info, WEXITED | kAnyChild) != 0 &&
           errno == EINTR) {
    }
}

} // namespace qv::platform
