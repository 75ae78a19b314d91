#include "frame/alert.h"

#include <string>

#include "frame/debug_lock.h"
#include "platform/diagnostics.h"
#include "platform/host_info.h"
#include "platform/loader.h"
#include "platform/thread.h"
#include "platform/wide_format.h"

namespace qv::core
{

constinit std::uint32_t s_alertMethod = 0;
constinit std::int32_t s_alertResume = 0;
constinit std::uint32_t s_alertSessionId = platform::kNoSession;

namespace
{

using GetSessionFunction = platform::DWORD (*)();

// Not every system has it.
GetSessionFunction FindGetConsoleSession()
{
    platform::Module* const kernel = platform::GetModuleHandleW(u"KERNEL32.DLL");
    return kernel == nullptr ? nullptr
                             : reinterpret_cast<GetSessionFunction>(platform::GetProcAddress(
                                   kernel, "WTSGetActiveConsoleSessionId"));
}

// Where a console will come up when there is none at the moment.
std::uint32_t DefaultConsoleSession()
{
    platform::OSVERSIONINFOA version{};
    version.dwOSVersionInfoSize = sizeof version;
    return platform::GetVersionExA(&version) != 0 &&
                   version.dwPlatformId == platform::VER_PLATFORM_WIN32_NT &&
                   version.dwMajorVersion > 5
               ? 1
               : 0;
}

// A service, in session 0, reaches the person at the console.
std::uint32_t FindSession()
{
    const GetSessionFunction getConsoleSession = FindGetConsoleSession();
    platform::DWORD own = 0;
    platform::ProcessIdToSessionId(platform::GetCurrentProcessId(), &own);
    if (own != 0 || getConsoleSession == nullptr) {
        return own;
    }
    const platform::DWORD console = getConsoleSession();
    return console != platform::kNoSession ? console : DefaultConsoleSession();
}

std::uint32_t AlertSession()
{
    if (ReadWord(s_alertSessionId) == platform::kNoSession) {
        const DebugLock lock;
        if (ReadWord(s_alertSessionId) == platform::kNoSession) {
            WriteWord(s_alertSessionId, FindSession());
        }
    }
    return ReadWord(s_alertSessionId);
}

// In bytes, with the terminator.
platform::DWORD SizeOf(const QVWChar* text)
{
    return static_cast<platform::DWORD>((std::char_traits<QVWChar>::length(text) + 1) *
                                        sizeof(QVWChar));
}

} // namespace

void WriteLogEntry(const QVWChar* title, const QVWChar* message)
{
    platform::EventSource* const source =
        platform::RegisterEventSourceW(nullptr, u"Quillon Services");
    const QVWChar* const texts[] = {title, message};
    platform::ReportEventW(source, platform::EVENTLOG_INFORMATION_TYPE, 0, 0, nullptr, 2, 0, texts,
                           nullptr);
    platform::DeregisterEventSource(source);
}

std::uint32_t ShowMessageBox(const QVWChar* title, const QVWChar* message)
{
    const std::uint32_t session = AlertSession();
    QVWChar boxTitle[kTitleUnits];
    platform::_snwprintf(boxTitle, kTitleUnits, u"%ls [Process ID %d]", title,
                         platform::GetCurrentProcessId());
    QVWChar boxText[kBoxUnits];
    platform::_snwprintf(boxText, kBoxUnits, u"%ls\n\nPress retry to debug the application.",
                         message);
    constexpr platform::DWORD style = platform::MB_ABORTRETRYIGNORE | platform::MB_ICONERROR |
                                      platform::MB_TASKMODAL | platform::MB_SETFOREGROUND;
    static_assert(style == 0x12012);
    platform::DWORD answer = 0;
    platform::WTSSendMessageW(nullptr, session, boxTitle, SizeOf(boxTitle), boxText,
                              SizeOf(boxText), style, 0, &answer, platform::kTrue);
    return answer;
}

void WaitForResume()
{
    while (ReadWord(s_alertResume) == 0) {
        platform::Sleep(0);
    }
    WriteWord(s_alertResume, 0);
}

} // namespace qv::core
