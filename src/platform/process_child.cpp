// Compiled without sanitizers, whose own records of memory and descriptors belong to the parent.
#include "platform/process_child.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "platform/mapping.h"
#include "platform/named_object.h"

namespace qv::platform
{

namespace
{

// As the kernel has it. A record of zeros is the default in every layout.
constexpr std::size_t kSignalSetBytes = (_NSIG - 1) / 8;
struct KernelSigaction
{
    unsigned long zeros[8];
};

// By the bare calls, here as below: the C library's may be another's, as in a program that is being
// tested, and keep records.
void ResetSignals()
{
    constexpr KernelSigaction kDefault = {};
    for (int signal = 1; signal < _NSIG; ++signal) {
        syscall(SYS_rt_sigaction, signal, &kDefault, nullptr, kSignalSetBytes);
    }
}

void UnblockSignals()
{
    constexpr unsigned long kNone[2] = {};
    syscall(SYS_rt_sigprocmask, SIG_SETMASK, kNone, nullptr, kSignalSetBytes);
}

bool PutInPlace(Descriptor source, int target)
{
    if (source == -1) {
        syscall(SYS_close, target);
        return true;
    }
    return source == target ? syscall(SYS_fcntl, target, F_SETFD, 0) == 0
                            : syscall(SYS_dup3, source, target, 0) == target;
}

// The descriptors are this process's own already.
bool SetStandardHandles(const Descriptor* given)
{
    constexpr int kCount = 3;
    Descriptor sources[kCount];
    for (int i = 0; i < kCount; ++i) {
        sources[i] = given[i];
        // Out of the way of the others.
        if (given[i] >= 0 && given[i] < kCount && given[i] != i) {
            sources[i] =
                static_cast<Descriptor>(syscall(SYS_fcntl, given[i], F_DUPFD_CLOEXEC, kCount));
            if (sources[i] < 0) {
                return false;
            }
        }
    }
    for (int i = 0; i < kCount; ++i) {
        if (!PutInPlace(sources[i], i)) {
            return false;
        }
    }
    return true;
}

StartStage Execute(const StartPlan& plan)
{
    ResetSignals();
    if (plan.standardHandles != nullptr && !SetStandardHandles(plan.standardHandles)) {
        return StartStage::StandardHandles;
    }
    if (plan.directory != nullptr && syscall(SYS_chdir, plan.directory) != 0) {
        return StartStage::Directory;
    }
    if (plan.process <= STDERR_FILENO || !HasRoomFor(plan.process)) {
        return StartStage::Number;
    }
    UnblockSignals();
    syscall(SYS_execve, plan.program, plan.arguments, plan.environment);
    return StartStage::Program;
}

} // namespace

int RunChild(void* argument)
{
    auto& plan = *static_cast<StartPlan*>(argument);
    // The descriptors have been copied. With those of sections the child would keep these, until it
    // executes its program and nobody is left to remove their names.
    CloseSectionCopies(plan.standardHandles);
    plan.holdsNamedObjects = false;
    ReleaseNamedObjects();
    plan.failedAt = Execute(plan);
    plan.error = errno;
    constexpr int kNeverRan = 127;
    syscall(SYS_exit_group, kNeverRan);
    return kNeverRan;
}

} // namespace qv::platform
