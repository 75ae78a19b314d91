// Debug output, the event log, and the box that asks a person.
#pragma once

#include "platform/types.h"

namespace qv::platform
{

// A place in the event log: the name of who writes there.
struct EventSource;

inline constexpr std::uint16_t EVENTLOG_ERROR_TYPE = 1;
inline constexpr std::uint16_t EVENTLOG_WARNING_TYPE = 2;
inline constexpr std::uint16_t EVENTLOG_INFORMATION_TYPE = 4;

inline constexpr DWORD MB_ABORTRETRYIGNORE = 0x2;
inline constexpr DWORD MB_ICONERROR = 0x10;
inline constexpr DWORD MB_TASKMODAL = 0x2000;
inline constexpr DWORD MB_SETFOREGROUND = 0x10000;
inline constexpr DWORD IDABORT = 3;
inline constexpr DWORD IDRETRY = 4;
inline constexpr DWORD IDIGNORE = 5;

inline constexpr DWORD kNoSession = 0xFFFFFFFF;

extern "C"
{
    // Writes the text as UTF-8 to the standard error descriptor, past the C library's stream: in
    // one write up to some 2,000 bytes, in more for longer ones. It waits when a pipe is full, as
    // any write does. What nobody can receive is dropped, and no SIGPIPE is raised. Nothing is
    // allocated. False only if the descriptor is closed, so that a caller can leave out the rest.
    BOOL OutputDebugStringW(const WCHAR* text);

    // On the local machine (server null). The name must outlive the source. Never null.
    EventSource* RegisterEventSourceW(const WCHAR* server, const WCHAR* name);
    // One entry of the system's log, "name: text: text", with the first two texts; null ones and
    // missing ones show as empty, and each is cut at 2,048 bytes. The host's own openlog and
    // setlogmask hold. Always true, also when there is no log.
    BOOL ReportEventW(EventSource* source, std::uint16_t type, std::uint16_t category, DWORD event,
                      const void* user, std::uint16_t textCount, DWORD rawSize,
                      const WCHAR* const* texts, const void* raw);
    BOOL DeregisterEventSource(EventSource* source);

    // Asks on the terminal that controls the process, and waits for a line that begins with the
    // letter of an answer. Sizes are in bytes. False with error 31 and *answer as it was when
    // nobody can be asked: there is no such terminal, another job has it, or it goes away. What was
    // typed before is thrown away, so that nobody answers by accident. Whatever the style and the
    // session, the answers are those of MB_ABORTRETRYIGNORE and the terminal is the process's own.
    BOOL WTSSendMessageW(const void* server, DWORD session, const WCHAR* title, DWORD titleSize,
                         const WCHAR* text, DWORD textSize, DWORD style, DWORD seconds,
                         DWORD* answer, BOOL wait);

    // The login session, 0 for a process without one, as services are. No such process: error 87.
    BOOL ProcessIdToSessionId(DWORD process, DWORD* session);
    // Also found by name in the built-in module.
    DWORD WTSGetActiveConsoleSessionId();
}

// Around a fork: waits some milliseconds for entries that are being written. A child that is forked
// beside one that takes longer, as when nobody empties the log, writes none.
void HoldLog();
void ReleaseLog(bool isChild);

} // namespace qv::platform
