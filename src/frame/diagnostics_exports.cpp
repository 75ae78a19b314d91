#include <qvcore6/diagnostics.h>
#include <qvcore6/result.h>

#include <csignal>
#include <cstdarg>
#include <cstdlib>

#include "frame/alert.h"
#include "frame/debug_lock.h"
#include "platform/debugger.h"
#include "platform/diagnostics.h"
#include "platform/thread.h"
#include "platform/wide_format.h"

using namespace qv;

namespace
{

void ShowBoxAndObey(const QVWChar* title, const QVWChar* message)
{
    const core::DebugLock lock;
    switch (core::ShowMessageBox(title != nullptr ? title : u"QVErrorAlert", message)) {
    case platform::IDABORT:
        // A handler of the host's runs before the end.
        std::raise(SIGABRT);
        std::exit(3);
    case platform::IDRETRY:
        platform::DebugBreak();
        break;
    default:
        break;
    }
}

} // namespace

QVRESULT QVErrorAlertSetMethod(uint32_t method)
{
    core::WriteWord(core::s_alertMethod, method);
    return S_OK;
}

void QVErrorAlert(uint32_t method, const QVWChar* title, const QVWChar* format, ...)
{
    const std::uint32_t effective = method != 0 ? method : core::ReadWord(core::s_alertMethod);
    if (effective == 0) {
        return;
    }
    if ((effective & QV_ALERT_BREAK) != 0) {
        platform::DebugBreak();
    }
    QVWChar message[core::kMessageUnits];
    message[0] = 0;
    if ((effective & (QV_ALERT_MESSAGE_BOX | QV_ALERT_EVENT_LOG)) != 0) {
        va_list arguments;
        va_start(arguments, format);
        platform::_vsnwprintf(message, core::kMessageUnits, format, arguments);
        va_end(arguments);
    }
    if ((effective & QV_ALERT_EVENT_LOG) != 0) {
        core::WriteLogEntry(title, message);
    }
    if ((effective & QV_ALERT_MESSAGE_BOX) != 0) {
        ShowBoxAndObey(title, message);
    }
    if ((effective & QV_ALERT_WAIT) != 0) {
        core::WaitForResume();
    }
}

void QVTrace(const QVWChar* format, ...)
{
    const core::DebugLock lock;
    QVWChar message[core::kMessageUnits];
    platform::_snwprintf(message, core::kMessageUnits, u"[%#x]", platform::GetCurrentThreadId());
    // A process that has closed the descriptor is spared the rest.
    if (platform::OutputDebugStringW(message) == 0) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    platform::_vsnwprintf(message, core::kMessageUnits, format, arguments);
    va_end(arguments);
    platform::OutputDebugStringW(message);
}

void QVAssert(const char* expression, const char* file, int32_t line)
{
    QVTrace(u"\nQV_ASSERT(%hs)\n %hs:%d\n", expression, file, line);
    const std::uint32_t method = core::ReadWord(core::s_alertMethod) != 0 ? 0 : QV_ALERT_BREAK;
    QVErrorAlert(method, u"Quillon Services",
                 u"Quillon Services Debug Assertion Failed!\n\nFile: %hs\nLine: %d\n\n"
                 u"Expression: %hs",
                 file, line, expression);
}
