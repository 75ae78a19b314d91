#include <qvcore6/process.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>

#include "frame/boundary.h"
#include "platform/descriptor_handle.h"
#include "platform/error.h"
#include "platform/host_info.h"
#include "platform/process.h"
#include "process/child_pipes.h"
#include "process/environment_block.h"
#include "process/managers.h"
#include "process/process_manager.h"

using namespace qv::core;
using namespace qv::platform;

namespace
{

constexpr std::u16string_view kSuffix = u".exe";
constexpr uint32_t kNoExitCode = 0xFFFFFFFF;

struct Request
{
    const QVWChar* program;
    const QVWChar* arguments;
    const QVWChar* workingDirectory;
    const QVWChar* const* environment;
};

// A null text counts as the empty one.
std::u16string ProgramName(const QVWChar* program)
{
    std::u16string name(program != nullptr ? program : u"");
    if (!name.ends_with(kSuffix)) {
        name += kSuffix;
    }
    return name;
}

// Nothing is quoted: the caller writes the arguments as the child's parser expects them.
std::u16string CommandLine(const std::u16string& name, const QVWChar* arguments)
{
    return arguments != nullptr ? name + u" " + arguments : name;
}

// Gives the slots of a start that failed back as they were.
class StandardSlots
{
public:
    explicit StandardSlots(QVHandle* slots) : m_slots(slots)
    {
        if (slots != nullptr) {
            std::copy_n(slots, ChildPipes::kStreams, m_before);
        }
    }
    ~StandardSlots()
    {
        if (m_slots != nullptr) {
            std::copy_n(m_before, ChildPipes::kStreams, m_slots);
        }
    }
    StandardSlots(const StandardSlots&) = delete;
    StandardSlots& operator=(const StandardSlots&) = delete;

    void Keep() { m_slots = nullptr; }

private:
    QVHandle* m_slots;
    QVHandle m_before[ChildPipes::kStreams];
};

QVHandle StartProcess(const Request& request, QVHandle* stdHandles)
{
    STARTUPINFOW startup = {};
    GetStartupInfoW(&startup);
    StandardSlots slots(stdHandles);
    ChildPipes pipes;
    if (stdHandles != nullptr) {
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdInput = pipes.Connect(0, stdHandles[0]);
        startup.hStdOutput = pipes.Connect(1, stdHandles[1]);
        startup.hStdError = pipes.Connect(2, stdHandles[2]);
    }
    const std::u16string name = ProgramName(request.program);
    const std::u16string commandLine = CommandLine(name, request.arguments);
    const EnvironmentBlock environment(request.environment);
    CQVProcessManager& manager = ProcessManager();
    CQVProcessManager::Node node = manager.MakeNode();

    PROCESS_INFORMATION information = {};
    if (CreateProcessW(name.c_str(), commandLine.c_str(), nullptr, nullptr, kTrue,
                       CREATE_UNICODE_ENVIRONMENT, environment.Get(), request.workingDirectory,
                       &startup, &information) == kFalse) {
        ThrowLastError();
    }
    slots.Keep();
    pipes.KeepParentEnds();
    CloseHandle(information.hThread);
    manager.Add(std::move(node), information.hProcess);
    return information.hProcess;
}

// A handle of a process for the length of a scope.
class OpenedProcess
{
public:
    explicit OpenedProcess(uint32_t id)
        : m_process(OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, kFalse, id))
    {}
    ~OpenedProcess()
    {
        if (*this) {
            CloseHandle(m_process);
        }
    }
    OpenedProcess(const OpenedProcess&) = delete;
    OpenedProcess& operator=(const OpenedProcess&) = delete;

    explicit operator bool() const { return m_process != QV_HANDLE_NONE; }
    DWORD Path(char* path, DWORD size) const
    {
        return GetProcessImageFileNameA(m_process, path, size);
    }

private:
    Descriptor m_process;
};

} // namespace

QVRESULT QVProcessCreate(const QVWChar* program, const QVWChar* arguments,
                         const QVWChar* workingDirectory, const QVWChar* const* environment,
                         uint32_t /*reserved*/, QVHandle* stdHandles, QVHandle* process)
{
    *process = QV_HANDLE_NONE;
    return Boundary([&] {
        *process = StartProcess({program, arguments, workingDirectory, environment}, stdHandles);
    });
}

QVRESULT QVProcessDetach(QVHandle process)
{
    return Boundary([&] { ProcessManager().Detach(process); });
}

QVRESULT QVProcessGetExitCode(QVHandle process, uint32_t* exitCode)
{
    *exitCode = kNoExitCode;
    return Boundary([&] { *exitCode = ProcessManager().Reap(process); });
}

QVRESULT QVProcessJoin(QVHandle process, uint32_t* exitCode)
{
    uint32_t dropped;
    uint32_t& code = exitCode != nullptr ? *exitCode : dropped;
    code = kNoExitCode;
    return Boundary([&] { code = ProcessManager().Join(process); });
}

QVRESULT QVProcessJoinChild(QVHandle* process, uint32_t* exitCode)
{
    uint32_t dropped;
    uint32_t& code = exitCode != nullptr ? *exitCode : dropped;
    code = kNoExitCode;
    *process = QV_HANDLE_NONE;
    return Boundary([&] { code = ProcessManager().JoinChild(*process); });
}

QVHandle QVProcessGetHandle()
{
    return static_cast<QVHandle>(reinterpret_cast<std::intptr_t>(GetCurrentProcess()));
}

uint32_t QVProcessGetID()
{
    return GetCurrentProcessId();
}

int16_t QVProcessGetName(uint32_t processId, char* name, uint32_t size)
{
    if (size == 0) {
        return 0;
    }
    const OpenedProcess process(processId);
    char path[260];
    if (!process || process.Path(path, sizeof path) == 0) {
        return 0;
    }
    const char* const lastSeparator = std::strrchr(path, '\\');
    std::strncpy(name, lastSeparator != nullptr ? lastSeparator + 1 : path, size);
    name[size - 1] = '\0';
    return 1;
}
