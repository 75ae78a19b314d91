// The order of an alert's steps, and what each asks of the platform.
#include <gtest/gtest.h>
#include <qvcore6/diagnostics.h>

#include <sys/syscall.h>

#include <cerrno>
#include <latch>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "frame/alert.h"
#include "frame/global_data.h"
#include "platform/diagnostics.h"
#include "platform/thread.h"
#include "support/alloc_faults.h"
#include "support/child_process.h"

using namespace qv::platform;
using qv::test::Child;

namespace
{

struct Platform;
constinit Platform* g_platform = nullptr;
constinit bool g_isOldKernel = false;

// What the replaced calls answer, and what they saw.
struct Platform
{
    Platform()
    {
        g_platform = this;
        qv::core::s_alertSessionId = kNoSession;
    }
    ~Platform() { g_platform = nullptr; }

    DWORD ownSession = 0; // kNoSession: the call fails
    DWORD console = 1;
    DWORD answer = IDIGNORE;
    int sleeps = 0;
    DWORD session = 0;
    std::vector<std::string> steps;
    std::vector<std::u16string> texts; // of the last box
};

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

} // namespace

extern "C"
{
    long __real_syscall(long number, ...);

    void __wrap_DebugBreak()
    {
        Step("break");
    }

    BOOL __wrap_ReportEventW()
    {
        Step("log");
        return kFalse;
    }

    BOOL __wrap_WTSSendMessageW(const void* /*server*/, DWORD session, const WCHAR* title,
                                DWORD /*titleSize*/, const WCHAR* text, DWORD /*textSize*/,
                                DWORD /*style*/, DWORD /*seconds*/, DWORD* answer, BOOL /*wait*/)
    {
        g_platform->texts = {title, text};
        g_platform->session = session;
        Step("box");
        *answer = g_platform->answer != 0 ? g_platform->answer : *answer;
        return g_platform->answer != 0 ? kTrue : kFalse;
    }

    BOOL __wrap_ProcessIdToSessionId(DWORD process, DWORD* session)
    {
        EXPECT_EQ(process, static_cast<DWORD>(getpid()));
        if (g_platform->ownSession == kNoSession) {
            return kFalse;
        }
        *session = g_platform->ownSession;
        return kTrue;
    }

    DWORD __wrap_WTSGetActiveConsoleSessionId()
    {
        return g_platform->console;
    }

    void __wrap_Sleep(DWORD /*milliseconds*/)
    {
        Step("sleep");
        if (++g_platform->sleeps == 3) {
            *static_cast<volatile std::int32_t*>(&qv::core::s_alertResume) = -1; // as a debugger
        }
    }

    long __wrap_syscall(long number, long a, long b, long c, long d, long e, long f)
    {
        if (g_isOldKernel && number == SYS_pwritev2) {
            errno = EOPNOTSUPP;
            return -1;
        }
        return __real_syscall(number, a, b, c, d, e, f);
    }
}

namespace
{

using Steps = std::vector<std::string>;

TEST(Alert, TakesItsStepsInOrder)
{
    const std::pair<std::uint32_t, Steps> rows[] = {
        {15, {"break", "log", "box locked", "sleep", "sleep", "sleep"}},
        {9, {"log", "box locked"}},
        {1, {"box locked"}},
        {2, {"break"}},
        {4, {"sleep", "sleep", "sleep"}},
        {0xFFFFFFF0, {}},
    };
    for (const bool isStanding : {false, true}) {
        for (const auto& [method, steps] : rows) {
            const Platform platform;
            EXPECT_EQ(QVErrorAlertSetMethod(isStanding ? method : 0), 0);
            QVErrorAlert(isStanding ? 0 : method, u"t", u"%d", 1);
            EXPECT_EQ(platform.steps, steps) << method;
            EXPECT_EQ(qv::core::s_alertResume, 0);
        }
    }
    QVErrorAlertSetMethod(0);
    for (const DWORD answer : {0u, IDRETRY, IDIGNORE, 1u, 77u}) {
        Platform platform;
        platform.answer = answer;
        QVErrorAlert(QV_ALERT_MESSAGE_BOX, u"t", u"m");
        EXPECT_EQ(platform.steps,
                  answer == IDRETRY ? (Steps{"box locked", "break locked"}) : Steps{"box locked"});
    }
}

TEST(Alert, CutsItsTexts)
{
    const Platform platform;
    const std::vector<std::u16string>& texts = platform.texts;
    const std::u16string message(600, u'm');
    const std::u16string title(70, u't');
    QVErrorAlert(QV_ALERT_MESSAGE_BOX, title.c_str(), u"%s", message.c_str());
    EXPECT_EQ(texts, (std::vector{title.substr(0, 63), message.substr(0, 511)}));
    QVErrorAlert(QV_ALERT_MESSAGE_BOX, nullptr, u"%.500s", message.c_str());
    EXPECT_TRUE(texts[0].starts_with(u"QVErrorAlert [Process ID "));
    EXPECT_EQ(texts[1], message.substr(0, 500) + u"\n\nPress ret");
}

TEST(Alert, FindsTheSessionOnce)
{
    constexpr DWORD rows[][3] = {
        // own, console, expected
        {2, 1, 2}, {0, 1, 1}, {0, 0, 0}, {kNoSession, 3, 3}, {0, kNoSession, 1},
    };
    for (const auto& [own, console, expected] : rows) {
        Platform platform;
        platform.ownSession = own;
        platform.console = console;
        QVErrorAlert(QV_ALERT_MESSAGE_BOX, u"t", u"m");
        platform.ownSession = 9;
        QVErrorAlert(QV_ALERT_MESSAGE_BOX, u"t", u"m");
        EXPECT_EQ(platform.session, expected);
    }
}

TEST(Trace, NeedsNoMemoryAndNoMutex)
{
    QVMutex* const mutex = std::exchange(g_globalData.m_debugMutex, nullptr);
    EXPECT_EQ(qv::test::SweepAllocations(
                  [] { QVTrace(u"%s %hs %5d %.3f\n", u"wide", "n\xC3\xA4rrow", 7, 1.5); },
                  [](long, bool) {}),
              0);
    g_globalData.m_debugMutex = mutex;
}

// On kernels that cannot be asked for no signal.
TEST(Trace, RaisesNoPipeSignalOnOldKernels)
{
    for (const int how : {SIG_UNBLOCK, SIG_BLOCK}) {
        Child child([how] {
            int ends[2];
            sigset_t signals;
            sigemptyset(&signals);
            sigaddset(&signals, SIGPIPE);
            pthread_sigmask(how, &signals, nullptr);
            g_isOldKernel = pipe(ends) == 0 && dup2(ends[1], STDERR_FILENO) >= 0;
            QVTrace(u"read");
            char bytes[64];
            const std::string text(bytes,
                                   static_cast<std::size_t>(read(ends[0], bytes, sizeof bytes)));
            close(ends[0]);
            QVTrace(u"lost");
            sigpending(&signals);
            const bool isPending = sigismember(&signals, SIGPIPE) == 1;
            pthread_sigmask(SIG_BLOCK, nullptr, &signals);
            const bool isBlocked = sigismember(&signals, SIGPIPE) == 1;
            return text.ends_with("read") && !isPending && isBlocked == (how == SIG_BLOCK);
        });
        EXPECT_TRUE(child.Succeeded()) << how;
    }
}

TEST(Trace, WorksInAChildForkedBesideATrace)
{
    std::latch inside(1);
    std::latch done(1);
    const std::jthread other([&] {
        QVMutexAcquire(*g_globalData.m_debugMutex);
        inside.count_down();
        done.wait();
        QVMutexRelease(*g_globalData.m_debugMutex);
    });
    inside.wait();
    Child child([] {
        alarm(20);
        QVTrace(u"");
        return QVMutexTryAcquire(*g_globalData.m_debugMutex) == 0;
    });
    EXPECT_TRUE(child.Succeeded());
    done.count_down();
}

} // namespace
