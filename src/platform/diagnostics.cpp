#include "platform/diagnostics.h"

#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <charconv>
#include <climits>
#include <csignal>
#include <cstdio>

#include "platform/error.h"
#include "platform/no_cancellation.h"
#include "platform/quiet_write.h"
#include "platform/section_hold.h"
#include "platform/standard_numbers.h"
#include "platform/utf8_text.h"

namespace qv::platform
{

namespace
{

constexpr std::size_t kPieceBytes = 2048;

// A child would find syslog's lock as another thread held it, for ever. Who enters holds this only
// to be counted, so that a log that nobody empties does not hold up a fork.
constinit CRITICAL_SECTION g_logEntrance{};
constinit std::atomic<int> g_writers{0};
constinit bool g_logIsLost = false;

class LogWriter
{
public:
    LogWriter()
    {
        const SectionHold entrance(&g_logEntrance);
        m_mayWrite = !g_logIsLost;
        ++g_writers;
    }
    ~LogWriter() { --g_writers; }
    LogWriter(const LogWriter&) = delete;
    LogWriter& operator=(const LogWriter&) = delete;

    bool MayWrite() const { return m_mayWrite; }

private:
    bool m_mayWrite;
};

// A terminated text for the log.
struct LogText
{
    explicit LogText(const WCHAR* text)
    {
        const std::size_t size =
            text == nullptr ? 0 : ToUtf8(text, kUntilTerminator, bytes, kPieceBytes).made;
        bytes[size] = 0;
    }
    char bytes[kPieceBytes + 1];
};

int Priority(std::uint16_t type)
{
    switch (type) {
    case EVENTLOG_ERROR_TYPE:
        return LOG_USER | LOG_ERR;
    case EVENTLOG_WARNING_TYPE:
        return LOG_USER | LOG_WARNING;
    default:
        return LOG_USER | LOG_INFO;
    }
}

} // namespace

BOOL OutputDebugStringW(const WCHAR* text)
{
    char bytes[kPieceBytes];
    while (*text != 0) {
        const Utf8Piece piece = ToUtf8(text, kUntilTerminator, bytes, sizeof bytes);
        if (!WriteQuietly(STDERR_FILENO, bytes, piece.made)) {
            return kFalse;
        }
        text += piece.taken;
    }
    return kTrue;
}

// The name itself stands for the source, so that there is nothing to allocate.
EventSource* RegisterEventSourceW(const WCHAR* /*server*/, const WCHAR* name)
{
    return reinterpret_cast<EventSource*>(const_cast<WCHAR*>(name));
}

BOOL ReportEventW(EventSource* source, std::uint16_t type, std::uint16_t /*category*/,
                  DWORD /*event*/, const void* /*user*/, std::uint16_t textCount, DWORD /*rawSize*/,
                  const WCHAR* const* texts, const void* /*raw*/)
{
    const KeepErrno keep;
    const LogText name(reinterpret_cast<const WCHAR*>(source));
    const LogText first(textCount > 0 ? texts[0] : nullptr);
    const LogText second(textCount > 1 ? texts[1] : nullptr);
    const StandardNumbers taken; // syslog opens a socket and keeps it
    if (const LogWriter writer; writer.MayWrite()) {
        syslog(Priority(type), "%s: %s: %s", name.bytes, first.bytes, second.bytes);
    }
    return kTrue;
}

BOOL DeregisterEventSource(EventSource* /*source*/)
{
    return kTrue;
}

BOOL ProcessIdToSessionId(DWORD process, DWORD* session)
{
    const KeepErrno keep;
    const NoCancellation noCancellation;
    // Asked by a number that kill would take for something else: there is no such process either.
    if (process > INT_MAX || (kill(static_cast<pid_t>(process), 0) != 0 && errno == ESRCH)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return kFalse;
    }
    char path[32];
    std::snprintf(path, sizeof path, "/proc/%u/sessionid", process);
    char digits[16] = {};
    ssize_t size = 0;
    if (const int file = open(path, O_RDONLY | O_CLOEXEC); file >= 0) {
        size = read(file, digits, sizeof digits);
        close(file);
    }
    // A kernel that keeps no sessions has no such file.
    DWORD found = 0;
    std::from_chars(digits, digits + (size > 0 ? size : 0), found);
    *session = found == kNoSession ? 0 : found;
    return kTrue;
}

DWORD WTSGetActiveConsoleSessionId()
{
    return 1;
}

void HoldLog()
{
    EnterCriticalSection(&g_logEntrance);
    for (int attempt = 0; attempt < 20 && g_writers != 0; ++attempt) {
        usleep(1000);
    }
}

void ReleaseLog(bool isChild)
{
    if (isChild) {
        g_logIsLost = g_logIsLost || g_writers != 0;
        g_writers = 0;
    }
    LeaveCriticalSection(&g_logEntrance);
}

} // namespace qv::platform
