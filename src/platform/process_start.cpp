#include <sched.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <new>
#include <optional>
#include <string>
#include <string_view>

#include "platform/command_line.h"
#include "platform/descriptor_handle.h"
#include "platform/error.h"
#include "platform/exit_code.h"
#include "platform/named_object.h"
#include "platform/native_path.h"
#include "platform/no_cancellation.h"
#include "platform/orphans.h"
#include "platform/process.h"
#include "platform/process_child.h"
#include "platform/standard_numbers.h"

// The C library's other name for clone: a sanitizer takes calls of the first one for forks.
extern "C" int __clone(int (*run)(void*), void* stack, int flags, void* argument, ...);

namespace qv::platform
{

namespace
{

constexpr std::string_view kSuffix = ".exe";

// The stack that the child runs on until it is a program of its own.
class ChildStack
{
public:
    ChildStack()
        : m_memory(mmap(nullptr, kSize, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0))
    {}
    ~ChildStack()
    {
        if (*this) {
            munmap(m_memory, kSize);
        }
    }
    ChildStack(const ChildStack&) = delete;
    ChildStack& operator=(const ChildStack&) = delete;

    explicit operator bool() const { return m_memory != MAP_FAILED; }
    void* Top() const { return static_cast<char*>(m_memory) + kSize; }

private:
    static constexpr std::size_t kSize = std::size_t{64} * 1024;

    void* m_memory;
};

// The child must not run a handler of the parent's. With the C library's own signals, which its
// calls would leave out.
class NoSignals
{
public:
    NoSignals()
    {
        constexpr unsigned long kAll[2] = {~0UL, ~0UL};
        syscall(SYS_rt_sigprocmask, SIG_SETMASK, kAll, m_before, kBytes);
    }
    ~NoSignals() { syscall(SYS_rt_sigprocmask, SIG_SETMASK, m_before, nullptr, kBytes); }
    NoSignals(const NoSignals&) = delete;
    NoSignals& operator=(const NoSignals&) = delete;

private:
    static constexpr std::size_t kBytes = (_NSIG - 1) / 8;

    unsigned long m_before[2] = {};
};

DWORD ErrorOfSystemLimit(int error)
{
    return error == EAGAIN ? ERROR_NOT_ENOUGH_MEMORY : ErrorFromErrno(error);
}

DWORD ErrorOf(const StartPlan& plan)
{
    switch (plan.failedAt) {
    case StartStage::Directory:
        return ERROR_DIRECTORY;
    case StartStage::Number:
        return ERROR_TOO_MANY_OPEN_FILES;
    default:
        return ErrorOfSystemLimit(plan.error);
    }
}

// The path that the program is started by.
DWORD FindProgram(const WCHAR* name, bool changesDirectory, std::string& path)
{
    NativePath native;
    if (const DWORD error = native.Set(name)) {
        return error;
    }
    if (changesDirectory && native.Text()[0] != '/') {
        char current[PATH_MAX];
        if (getcwd(current, sizeof current) == nullptr) {
            return ErrorFromErrno(errno);
        }
        path.append(current).append("/");
    }
    path += native.View();
    const bool isMissing =
        access(path.c_str(), F_OK) != 0 && (errno == ENOENT || errno == ENAMETOOLONG);
    if (isMissing && path.ends_with(kSuffix)) {
        path.resize(path.size() - kSuffix.size());
        if (path.empty() || path.ends_with('/')) {
            return ERROR_FILE_NOT_FOUND;
        }
    }
    return ERROR_SUCCESS;
}

// Makes the process. 0, or an error number: then there is none, but perhaps the number of its
// handle, for which there was no place.
DWORD TryStart(const ChildStack& stack, StartPlan& plan, pid_t& id)
{
    plan.process = -1;
    plan.failedAt = StartStage::Executed;
    {
        const NoSignals noSignals;
        // The child has copies of all descriptors until it executes its program. None must be that
        // of an object half opened, whose locks would seem to be another holder's so long. The
        // child lets go as soon as it is made: a slow file system holds up nobody.
        HoldNamedObjects();
        plan.holdsNamedObjects = true;
        // Without a signal at its end, which executing the program sets: a process that never was a
        // program is not shown to the host.
        id = __clone(&RunChild, stack.Top(), CLONE_VM | CLONE_VFORK | CLONE_PIDFD, &plan,
                     &plan.process);
        if (plan.holdsNamedObjects) {
            ReleaseNamedObjects();
        }
    }
    if (id < 0) {
        return ErrorOfSystemLimit(errno);
    }
    if (plan.failedAt == StartStage::Executed) {
        return ERROR_SUCCESS;
    }
    ReapStillborn(plan.process);
    CloseDescriptor(plan.process);
    return ErrorOf(plan);
}

DWORD Start(StartPlan& plan, PROCESS_INFORMATION& information)
{
    const ChildStack stack;
    RecordHold<ProcessRecord> record(new (std::nothrow) ProcessRecord);
    if (!stack || !record) {
        return ERROR_OUTOFMEMORY;
    }
    // Nothing may fail when the program runs already. So a child whose handle has a number without
    // a place gives up, and another one is made.
    std::optional<StandardNumbers> standardNumbers;
    pid_t id = -1;
    for (DWORD error; (error = TryStart(stack, plan, id)) != ERROR_SUCCESS;) {
        if (id < 0 || plan.failedAt != StartStage::Number) {
            return error;
        }
        if (const DWORD noRoom = MakeRoomFor(plan.process)) {
            return noRoom;
        }
        standardNumbers.emplace();
    }
    record->Set(plan.process, static_cast<DWORD>(id), true);
    PutRecord(plan.process, std::move(record));
    information = {plan.process, GetCurrentThread(), static_cast<DWORD>(id),
                   static_cast<DWORD>(id)};
    return ERROR_SUCCESS;
}

DWORD Create(const WCHAR* application, const WCHAR* commandLine, const WCHAR* environment,
             const WCHAR* directory, const STARTUPINFOW& startup, PROCESS_INFORMATION& information)
{
    std::string program;
    if (const DWORD error = FindProgram(application, directory != nullptr, program)) {
        return error;
    }
    NativePath nativeDirectory;
    if (const DWORD error = directory != nullptr ? nativeDirectory.Set(directory) : ERROR_SUCCESS) {
        return ERROR_DIRECTORY;
    }
    NativeStrings arguments = NativeStrings::OfCommandLine(commandLine);
    std::optional<NativeStrings> strings;
    if (environment != nullptr) {
        strings = NativeStrings::OfBlock(environment);
    }
    const Descriptor standard[] = {startup.hStdInput, startup.hStdOutput, startup.hStdError};
    const bool setsStandard = (startup.dwFlags & STARTF_USESTDHANDLES) != 0;

    StartPlan plan = {};
    plan.program = program.c_str();
    plan.arguments = arguments.Array();
    plan.environment = strings ? strings->Array() : environ;
    plan.directory = directory != nullptr ? nativeDirectory.Text() : nullptr;
    plan.standardHandles = setsStandard ? standard : nullptr;
    return Start(plan, information);
}

} // namespace

void GetStartupInfoW(STARTUPINFOW* startup)
{
    *startup = {sizeof(STARTUPINFOW), 0, -1, -1, -1};
}

BOOL CreateProcessW(const WCHAR* application, const WCHAR* commandLine,
                    const SECURITY_ATTRIBUTES* /*process*/, const SECURITY_ATTRIBUTES* /*thread*/,
                    BOOL /*inherits*/, DWORD /*flags*/, const WCHAR* environment,
                    const WCHAR* directory, const STARTUPINFOW* startup,
                    PROCESS_INFORMATION* information)
{
    const KeepErrno keep;
    const NoCancellation noCancellation;
    Orphans::Sweep();
    DWORD error = ERROR_OUTOFMEMORY;
    try {
        error = Create(application, commandLine, environment, directory, *startup, *information);
    } catch (const std::bad_alloc&) {
    }
    if (error != ERROR_SUCCESS) {
        SetLastError(error);
    }
    return error == ERROR_SUCCESS ? kTrue : kFalse;
}

} // namespace qv::platform
