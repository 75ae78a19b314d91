// The order of an alert's steps, and what each asks of the platform.
#include <gtest/gtest.h>
#include <qvcore6/diagnostics.h>

#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <string>
#include <string_view>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "frame/alert.h"
#include "frame/global_data.h"
#include "platform/diagnostics.h"
#include "platform/error.h"
#include "platform/host_info.h"
#include "platform/loader.h"
#include "platform/thread.h"
#include "support/alloc_faults.h"

using namespace qv::platform;

namespace
{

// What the replaced calls answer, and what they saw.
struct Platform
{
    bool hasConsoleCall = true;
    DWORD ownSession = 0; // kNoSession: the call fails
    DWORD console = 1;
    DWORD platformId = VER_PLATFORM_WIN32_NT;
    DWORD major = 6; // 0: the call fails
    DWORD answer = IDIGNORE;

    int sessionCalls = 0;
    DWORD session = 0;
    std::vector<std::string> steps;
    std::vector<std::u16string> texts; // of the last call
};

constinit Platform* g_platform = nullptr;
constinit bool g_isOldKernel = false;
constinit std::atomic<bool> g_stays{false}; // a debug output does not return
constinit std::atomic<bool> g_isInside{false};

void Step(const std::string& step)
{
    // Whether another thread could trace now.
    QVRESULT other = -1;
    std::thread([&other] {
        if (QVMutexTryAcquire(*g_globalData.m_debugMutex) == 0) {
            other = QVMutexRelease(*g_globalData.m_debugMutex);
        }
    }).join();
    g_platform->steps.push_back(step + (other == 0 ? "" : " locked"));
}

DWORD ConsoleSession()
{
    return g_platform->console;
}

struct Replaced
{
    Replaced()
    {
        g_platform = &platform;
        qv::core::s_alertSessionId = kNoSession;
    }
    ~Replaced()
    {
        g_platform = nullptr;
        qv::core::s_alertSessionId = kNoSession;
    }
    Platform platform;
};

} // namespace

extern "C"
{
    decltype(OutputDebugStringW) __real_OutputDebugStringW;
    decltype(ReportEventW) __real_ReportEventW;
    decltype(WTSSendMessageW) __real_WTSSendMessageW;
    decltype(GetProcAddress) __real_GetProcAddress;
    decltype(ProcessIdToSessionId) __real_ProcessIdToSessionId;
    decltype(GetVersionExA) __real_GetVersionExA;
    decltype(Sleep) __real_Sleep;
    long __real_syscall(long number, ...);

    BOOL __wrap_OutputDebugStringW(const WCHAR* text)
    {
        if (g_stays) {
            g_isInside = true;
            for (;;) {
                pause();
            }
        }
        if (g_platform == nullptr) {
            return __real_OutputDebugStringW(text);
        }
        g_platform->texts.emplace_back(text);
        Step("trace");
        return kTrue;
    }

    void __wrap_DebugBreak()
    {
        Step("break");
    }

    BOOL __wrap_ReportEventW(EventSource* source, std::uint16_t type, std::uint16_t category,
                             DWORD event, const void* user, std::uint16_t textCount, DWORD rawSize,
                             const WCHAR* const* texts, const void* raw)
    {
        EXPECT_EQ(std::u16string_view(reinterpret_cast<const WCHAR*>(source)), u"Quillon Services");
        EXPECT_EQ(std::tuple(type, category, event, user, textCount, rawSize, raw),
                  std::tuple(4, 0, 0u, nullptr, 2, 0u, nullptr));
        g_platform->texts = {texts[0] != nullptr ? texts[0] : u"<null>", texts[1]};
        Step("log");
        return kFalse;
    }

    BOOL __wrap_WTSSendMessageW(const void* server, DWORD session, const WCHAR* title,
                                DWORD titleSize, const WCHAR* text, DWORD textSize, DWORD style,
                                DWORD seconds, DWORD* answer, BOOL wait)
    {
        EXPECT_EQ(std::tuple(server, style, seconds, *answer, wait),
                  std::tuple(nullptr, 0x12012u, 0u, 0u, kTrue));
        g_platform->texts = {title, text};
        EXPECT_EQ(titleSize, 2 * g_platform->texts[0].size() + 2);
        EXPECT_EQ(textSize, 2 * g_platform->texts[1].size() + 2);
        g_platform->session = session;
        Step("box");
        if (g_platform->answer == 0) {
            return kFalse;
        }
        *answer = g_platform->answer;
        return kTrue;
    }

    FARPROC __wrap_GetProcAddress(HMODULE module, const char* name)
    {
        if (g_platform == nullptr) {
            return __real_GetProcAddress(module, name);
        }
        EXPECT_EQ(module, LoadLibraryA("kernel32.dll"));
        EXPECT_STREQ(name, "WTSGetActiveConsoleSessionId");
        return g_platform->hasConsoleCall ? reinterpret_cast<FARPROC>(&ConsoleSession) : nullptr;
    }

    BOOL __wrap_ProcessIdToSessionId(DWORD process, DWORD* session)
    {
        if (g_platform == nullptr) {
            return __real_ProcessIdToSessionId(process, session);
        }
        EXPECT_EQ(process, static_cast<DWORD>(getpid()));
        ++g_platform->sessionCalls;
        if (g_platform->ownSession == kNoSession) {
            return kFalse;
        }
        *session = g_platform->ownSession;
        return kTrue;
    }

    BOOL __wrap_GetVersionExA(OSVERSIONINFOA* version)
    {
        if (g_platform == nullptr || g_platform->major == 0) {
            return g_platform == nullptr ? __real_GetVersionExA(version) : kFalse;
        }
        EXPECT_EQ(version->dwOSVersionInfoSize, 148u);
        version->dwPlatformId = g_platform->platformId;
        version->dwMajorVersion = g_platform->major;
        return kTrue;
    }

    void __wrap_Sleep(DWORD milliseconds)
    {
        if (g_platform == nullptr) {
            return __real_Sleep(milliseconds);
        }
        EXPECT_EQ(milliseconds, 0u);
        Step("sleep");
        // As a debugger would, at the third look.
        if (g_platform->steps.size() > 2 &&
            g_platform->steps[g_platform->steps.size() - 3] == "sleep") {
            *static_cast<volatile std::int32_t*>(&qv::core::s_alertResume) = -1;
        }
    }

    long __wrap_syscall(long number, ...)
    {
        if (g_isOldKernel && number == SYS_pwritev2) {
            errno = EOPNOTSUPP;
            return -1;
        }
        va_list arguments;
        va_start(arguments, number);
        long a[6];
        for (long& argument : a) {
            argument = va_arg(arguments, long);
        }
        va_end(arguments);
        return __real_syscall(number, a[0], a[1], a[2], a[3], a[4], a[5]);
    }
}

namespace
{

using Steps = std::vector<std::string>;

TEST(Alert, TakesItsStepsInOrder)
{
    const struct
    {
        std::uint32_t method;
        Steps steps;
    } rows[] = {
        {15, {"break", "log", "box locked", "sleep", "sleep", "sleep"}},
        {9, {"log", "box locked"}},
        {1, {"box locked"}},
        {2, {"break"}},
        {4, {"sleep", "sleep", "sleep"}},
        {0xFFFFFFF0, {}},
    };
    for (const bool isStanding : {false, true}) {
        for (const auto& row : rows) {
            const Replaced replaced;
            EXPECT_EQ(QVErrorAlertSetMethod(isStanding ? row.method : 0), 0);
            EXPECT_EQ(qv::core::s_alertMethod, isStanding ? row.method : 0);
            QVErrorAlert(isStanding ? 0 : row.method, u"t", u"%d", 1);
            EXPECT_EQ(replaced.platform.steps, row.steps) << row.method;
            EXPECT_EQ(qv::core::s_alertResume, 0);
        }
    }
    QVErrorAlertSetMethod(0);
}

TEST(Alert, ObeysTheAnswer)
{
    for (const DWORD answer : {0u, IDRETRY, IDIGNORE, 1u, 77u}) {
        Replaced replaced;
        replaced.platform.answer = answer;
        QVErrorAlert(QV_ALERT_MESSAGE_BOX, u"t", u"m");
        EXPECT_EQ(replaced.platform.steps,
                  answer == IDRETRY ? (Steps{"box locked", "break locked"}) : Steps{"box locked"});
    }
}

TEST(Alert, CutsItsTexts)
{
    const Replaced replaced;
    const std::vector<std::u16string>& texts = replaced.platform.texts;
    const std::u16string process = std::u16string(u" [Process ID ") + [] {
        const std::string id = std::to_string(getpid());
        return std::u16string(id.begin(), id.end());
    }() + u"]";
    const std::u16string advice = u"\n\nPress retry to debug the application.";
    const std::u16string message(600, u'm');
    const std::u16string title(70, u't');
    QVErrorAlert(QV_ALERT_MESSAGE_BOX, nullptr, u"%d", 5);
    EXPECT_EQ(texts, (std::vector{u"QVErrorAlert" + process, u"5" + advice}));
    QVErrorAlert(QV_ALERT_MESSAGE_BOX, title.c_str(), u"%s", message.c_str());
    EXPECT_EQ(texts, (std::vector{title.substr(0, 63), message.substr(0, 511)}));
    QVErrorAlert(QV_ALERT_MESSAGE_BOX, u"t", u"%.500s", message.c_str());
    EXPECT_EQ(texts[1], message.substr(0, 500) + advice.substr(0, 11));
    QVErrorAlert(QV_ALERT_EVENT_LOG, nullptr, u"%s", message.c_str());
    EXPECT_EQ(texts, (std::vector{std::u16string(u"<null>"), message.substr(0, 511)}));
}

TEST(Alert, FindsTheSessionOnce)
{
    const struct
    {
        bool hasConsoleCall;
        DWORD own, console, platformId, major;
        DWORD expected;
    } rows[] = {
        {true, 2, 1, 2, 6, 2},          {false, 2, 1, 2, 6, 2},
        {false, 0, 1, 2, 6, 0},         {true, 0, 1, 2, 6, 1},
        {true, 0, 0, 2, 6, 0},          {true, kNoSession, 3, 2, 6, 3},
        {true, 0, kNoSession, 2, 6, 1}, {true, 0, kNoSession, 2, 5, 0},
        {true, 0, kNoSession, 1, 6, 0}, {true, 0, kNoSession, 2, 0, 0},
    };
    for (const auto& row : rows) {
        Replaced replaced;
        Platform& p = replaced.platform;
        p.hasConsoleCall = row.hasConsoleCall;
        p.ownSession = row.own;
        p.console = row.console;
        p.platformId = row.platformId;
        p.major = row.major;
        QVErrorAlert(QV_ALERT_MESSAGE_BOX, u"t", u"m");
        p.ownSession = 9;
        QVErrorAlert(QV_ALERT_MESSAGE_BOX, u"t", u"m");
        EXPECT_EQ(p.session, row.expected) << &row - rows;
        EXPECT_EQ(p.sessionCalls, 1);
    }
}

TEST(Trace, IsTwoPiecesUnderTheMutex)
{
    const Replaced replaced;
    QVTrace(u"%d", 5);
    EXPECT_EQ(replaced.platform.steps, (Steps{"trace locked", "trace locked"}));
    EXPECT_EQ(replaced.platform.texts[1], u"5");
    QVAssert(nullptr, "f", -1);
    EXPECT_EQ(replaced.platform.texts[3], u"\nQV_ASSERT((null))\n f:-1\n");
    EXPECT_EQ(replaced.platform.steps.back(), "break");
}

TEST(Diagnostics, NeedNoMemory)
{
    const int before = dup(STDERR_FILENO);
    const int nowhere = open("/dev/null", O_WRONLY);
    dup2(nowhere, STDERR_FILENO);
    EXPECT_EQ(qv::test::SweepAllocations(
                  [] { QVTrace(u"%s %hs %5d %.3f", u"wide", "n\xC3\xA4rrow", 7, 1.5); },
                  [](long, bool) {}),
              0);
    dup2(before, STDERR_FILENO);
    close(before);
    close(nowhere);
}

int StatusOf(pid_t child)
{
    int status = 0;
    waitpid(child, &status, 0);
    return status;
}

// On kernels that cannot be asked for no signal.
TEST(Trace, RaisesNoPipeSignalOnOldKernels)
{
    for (const bool isBlocked : {false, true}) {
        const pid_t child = fork();
        if (child == 0) {
            g_isOldKernel = true;
            int ends[2];
            sigset_t pipeSignal, before, after, pending;
            sigemptyset(&pipeSignal);
            sigaddset(&pipeSignal, SIGPIPE);
            if (isBlocked) {
                pthread_sigmask(SIG_BLOCK, &pipeSignal, nullptr);
            }
            pthread_sigmask(SIG_BLOCK, nullptr, &before);
            if (pipe2(ends, O_CLOEXEC) != 0 || dup2(ends[1], STDERR_FILENO) < 0) {
                _exit(1);
            }
            QVTrace(u"read");
            char bytes[64];
            const ssize_t size = read(ends[0], bytes, sizeof bytes);
            close(ends[0]);
            QVTrace(u"lost");
            pthread_sigmask(SIG_BLOCK, nullptr, &after);
            sigpending(&pending);
            const bool isFine = size > 4 && std::string_view(bytes + size - 4, 4) == "read" &&
                                sigismember(&pending, SIGPIPE) == 0 &&
                                sigismember(&before, SIGPIPE) == sigismember(&after, SIGPIPE);
            _exit(isFine ? 0 : 2);
        }
        EXPECT_EQ(StatusOf(child), 0) << isBlocked;
    }
}

// Another thread stays inside for ever; the child has no such thread.
TEST(Trace, WorksInAChildForkedBesideATrace)
{
    const pid_t tester = fork();
    if (tester == 0) {
        alarm(40);
        g_stays = true;
        std::thread([] { QVTrace(u"never ends"); }).detach();
        while (!g_isInside) {
            std::this_thread::yield();
        }
        const pid_t child = fork();
        if (child == 0) {
            alarm(20);
            g_stays = false;
            QVTrace(u"");
            QVTrace(u"");
            _exit(QVMutexTryAcquire(*g_globalData.m_debugMutex) == 0 ? 0 : 1);
        }
        _exit(StatusOf(child) == 0 ? 0 : 1);
    }
    EXPECT_EQ(StatusOf(tester), 0);
}

TEST(Trace, WorksWithoutTheMutex)
{
    QVMutex* const mutex = std::exchange(g_globalData.m_debugMutex, nullptr);
    QVTrace(u"");
    g_globalData.m_debugMutex = mutex;
}

TEST(Diagnostics, AsksThePlatform)
{
    DWORD session = 77;
    EXPECT_EQ(ProcessIdToSessionId(static_cast<DWORD>(getpid()), &session), kTrue);
    EXPECT_NE(session, 77u);
    const pid_t gone = fork();
    if (gone == 0) {
        _exit(0);
    }
    StatusOf(gone);
    for (const DWORD process : {static_cast<DWORD>(gone), kNoSession}) {
        SetLastError(0);
        EXPECT_EQ(ProcessIdToSessionId(process, &session), kFalse);
        EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    }
    const auto console = reinterpret_cast<DWORD (*)()>(
        GetProcAddress(GetModuleHandleW(u"KERNEL32.DLL"), "WTSGetActiveConsoleSessionId"));
    ASSERT_NE(console, nullptr);
    EXPECT_EQ(console(), 1u);
    OSVERSIONINFOA version{};
    EXPECT_EQ(GetVersionExA(&version), kFalse);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    version.dwOSVersionInfoSize = 148;
    EXPECT_EQ(GetVersionExA(&version), kTrue);
    EXPECT_GT(version.dwMajorVersion, 4u);
}

} // namespace
