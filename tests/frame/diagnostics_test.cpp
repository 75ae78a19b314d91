// Diagnostics as a process's surroundings see them: its standard error, its terminal, its log, and
// how it ends. Each case is a process of its own.
#include <gtest/gtest.h>
#include <qvcore6/diagnostics.h>

#include <poll.h>
#include <pty.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <syslog.h>
#include <termios.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/child_process.h"

namespace
{

constexpr int kFine = 42;
const QVWChar* const kNoText = reinterpret_cast<const QVWChar*>(1); // whoever reads it crashes
const std::string kQuestion = "\n(A)bort, (R)etry or (I)gnore? ";

// To its end, if it never ends so.
std::string ReadUntil(int file, const std::string& end)
{
    std::string seen;
    for (char byte; !(seen.ends_with(end) && !end.empty()) && read(file, &byte, 1) == 1;) {
        seen += byte;
    }
    return seen;
}

// A process with a terminal of its own, which somebody looks at from the other side.
class Program
{
public:
    explicit Program(const std::function<void()>& body)
    {
        termios plain = {};
        plain.c_lflag = ICANON;
        plain.c_cc[VEOF] = '\x04';
        m_id = forkpty(&m_screen, nullptr, &plain, nullptr);
        if (m_id == 0) {
            alarm(60);
            body();
            _exit(kFine);
        }
    }
    ~Program() { HangUp(); }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    pid_t Id() const { return m_id; }
    // What has appeared since the last look.
    std::string Output(const std::string& end = "") { return ReadUntil(m_screen, end); }
    void Type(const std::string& keys)
    {
        EXPECT_EQ(write(m_screen, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }
    void HangUp() { close(std::exchange(m_screen, -1)); }
    // How it ended: its status, or the signal below 0.
    int End()
    {
        int status = 0;
        waitpid(m_id, &status, 0);
        return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
    }

private:
    int m_screen = -1;
    pid_t m_id;
};

// Shows what the log gets: through a socket in a /dev of its own, or, where the test may not have
// one, through the C library's copy to standard error.
void ShowLogOf(void (*body)())
{
    const bool isAlone = (unshare(CLONE_NEWNS) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0) &&
                         mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                         mount("none", "/dev", "tmpfs", 0, nullptr) == 0;
    sockaddr_un address = {AF_UNIX, "/dev/log"};
    const int log = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (!isAlone || bind(log, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        openlog("<14>", LOG_PERROR, LOG_USER);
    }
    body();
    for (char bytes[8192] = {}; recv(log, bytes, sizeof bytes - 1, MSG_DONTWAIT) > 0;) {
        dprintf(STDERR_FILENO, "%.4s%s\n", bytes, std::strstr(bytes, ": "));
    }
}

TEST(Diagnostics, OutputAndEnd)
{
    const auto logged = [](void (*body)()) { return [body] { ShowLogOf(body); }; };
    const struct
    {
        std::function<void()> body;
        int end;
        std::string output; // with # for the thread
    } rows[] = {
        {[] { QVTrace(u"%ls %hs %d \xD83D\n", u"\u00FC\U0001F600", "n\xC3\xA4rrow", 5); }, kFine,
         "#\xC3\xBC\xF0\x9F\x98\x80 n\xC3\xA4rrow 5 \xEF\xBF\xBD\n"},
        {[] { QVTrace(nullptr); }, kFine, "#(null)"},
        {[] { QVTrace(u"%0600d", 0); }, kFine, "#" + std::string(511, '0')},
        {[] {
             int unread[2];
             EXPECT_EQ(pipe(unread), 0);
             close(unread[0]);
             dup2(unread[1], STDERR_FILENO);
             errno = 77;
             QVTrace(u"lost");
             _exit(errno == 77 ? kFine : 1);
         },
         kFine, ""},
        {[] {
             close(STDERR_FILENO);
             QVTrace(u"lost");
             QVAssert(nullptr, nullptr, 0);
         },
         -SIGTRAP, ""},
        {[] { QVErrorAlert(0, kNoText, kNoText); }, kFine, ""},
        {[] {
             signal(SIGTRAP, [](int) {});
             QVErrorAlert(QV_ALERT_BREAK, kNoText, kNoText);
         },
         kFine, ""},
        {[] { QVAssert("left == right", "orders.c", 12); }, -SIGTRAP,
         "#\nQV_ASSERT(left == right)\n orders.c:12\n"},
        {logged([] { QVErrorAlert(8, u"Orders", u"%d %hs", 5, "l\xC3\xB6st %s%n"); }), kFine,
         "<14>: Quillon Services: Orders: 5 l\xC3\xB6st %s%n\n"},
        {logged([] { QVErrorAlert(QV_ALERT_EVENT_LOG, nullptr, u"text"); }), kFine,
         "<14>: Quillon Services: : text\n"},
        {logged([] { QVErrorAlert(8, u"T", u"%0600d", 0); }), kFine,
         "<14>: Quillon Services: T: " + std::string(511, '0') + "\n"},
        {logged([] {
             QVErrorAlertSetMethod(QV_ALERT_EVENT_LOG);
             close(STDOUT_FILENO);
             QVAssert("a<b", "f.c", 3);
             if (fcntl(STDOUT_FILENO, F_GETFD) != -1) {
                 _exit(1); // the log's socket has taken the number
             }
         }),
         kFine,
         "#\nQV_ASSERT(a<b)\n f.c:3\n<14>: Quillon Services: Quillon Services: Quillon Services "
         "Debug Assertion Failed!\n\nFile: f.c\nLine: 3\n\nExpression: a<b\n"},
    };
    for (const auto& row : rows) {
        Program program(row.body);
        char thread[16];
        std::snprintf(thread, sizeof thread, "[%#x]", static_cast<unsigned>(program.Id()));
        const bool hasThread = row.output.starts_with('#');
        const std::string expected = hasThread ? thread + row.output.substr(1) : row.output;
        EXPECT_EQ(program.Output(), expected);
        EXPECT_EQ(program.End(), row.end) << expected;
    }
}

TEST(Trace, PiecesOfThreadsStayTogether)
{
    constexpr int kThreads = 4;
    constexpr int kTraces = 200;
    Program program([] {
        std::vector<std::jthread> threads;
        while (threads.size() < kThreads) {
            threads.emplace_back([] {
                for (int i = 0; i < kTraces; ++i) {
                    QVTrace(u"%#x %d %0*d\n", gettid(), i, 1 + i, 7);
                }
            });
        }
    });
    std::istringstream lines(program.Output());
    EXPECT_EQ(program.End(), kFine);
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        unsigned id = 0;
        unsigned writer = 1;
        int i = 0;
        std::sscanf(line.c_str(), "[%x]%x %d ", &id, &writer, &i);
        EXPECT_EQ(id, writer);
        EXPECT_EQ(line.substr(line.rfind(' ') + 1),
                  std::string(static_cast<std::size_t>(i), '0') + "7");
    }
    EXPECT_EQ(count, kThreads * kTraces);
}

// The write waits in a full pipe, is interrupted again and again, and still gives the whole text.
TEST(Trace, GoesOnAfterSignals)
{
    static auto& ticks = qv::test::MakeShared<std::atomic<int>>();
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    Program program([&ends] {
        dup2(ends[1], STDERR_FILENO);
        fcntl(STDERR_FILENO, F_SETFL, O_NONBLOCK);
        while (write(STDERR_FILENO, "x", 1) == 1) {
        }
        fcntl(STDERR_FILENO, F_SETFL, 0);
        struct sigaction action = {};
        action.sa_handler = [](int) { ++ticks; };
        sigaction(SIGALRM, &action, nullptr);
        const itimerval often = {{0, 2000}, {0, 2000}};
        setitimer(ITIMER_REAL, &often, nullptr);
        QVTrace(u"whole %0500d", 1);
    });
    close(ends[1]);
    EXPECT_TRUE(qv::test::Becomes([] { return ticks >= 5; }));
    const std::string whole = "]whole " + std::string(499, '0') + "1";
    EXPECT_TRUE(ReadUntil(ends[0], "").ends_with(whole));
    EXPECT_EQ(program.End(), kFine);
    close(ends[0]);
}

// What is typed before the box is seen answers nothing.
TEST(MessageBox, DoesWhatIsAnswered)
{
    const auto handleAborts = [] { signal(SIGABRT, [](int) {}); };
    const auto passKeysOn = [] { // the kernel would cut a long line
        termios mode = {};
        mode.c_cc[VMIN] = 1;
        tcsetattr(STDIN_FILENO, TCSANOW, &mode);
    };
    const struct
    {
        std::vector<std::string> answers; // none: the terminal goes away
        int end;
        std::function<void()> prepare = [] {};
    } rows[] = {
        {{"a\n"}, -SIGABRT},
        {{"Abort\n"}, -SIGABRT},
        {{"a\n"}, 3, handleAborts},
        {{"r\n"}, -SIGTRAP},
        {{"x\n", "\n", "Retry\n"}, -SIGTRAP},
        {{"  I\n"}, kFine},
        {{"i\n"}, kFine},
        {{"\x04"}, kFine},
        {{"z" + std::string(10000, 'a') + "\n", "i\r"}, kFine, passKeysOn},
        {{}, kFine},
    };
    for (const auto& row : rows) {
        Program program([&row] {
            signal(SIGHUP, SIG_IGN);
            pollfd typed = {STDIN_FILENO, POLLIN, 0};
            poll(&typed, 1, -1);
            row.prepare();
            QVErrorAlert(QV_ALERT_MESSAGE_BOX, u"Orders", u"disk %d full", 3);
        });
        program.Type("retry\n");
        EXPECT_EQ(program.Output(kQuestion),
                  "\nOrders [Process ID " + std::to_string(program.Id()) +
                      "]\n\ndisk 3 full\n\nPress retry to debug the application." + kQuestion);
        for (std::size_t i = 0; i < row.answers.size(); ++i) {
            EXPECT_EQ(i == 0 ? kQuestion : program.Output(kQuestion), kQuestion);
            program.Type(row.answers[i]);
        }
        if (row.answers.empty()) {
            program.HangUp();
        }
        EXPECT_EQ(program.End(), row.end) << &row - rows;
    }
}

TEST(MessageBox, NobodyIsAskedInTheBackgroundOrWithoutATerminal)
{
    for (const bool hasTerminal : {true, false}) {
        Program shell([hasTerminal] {
            const pid_t job = fork();
            if (job == 0) {
                hasTerminal ? setpgid(0, 0) : setsid();
                QVErrorAlert(QV_ALERT_MESSAGE_BOX, u"t", u"m");
                _exit(kFine);
            }
            int status = 0;
            waitpid(job, &status, WUNTRACED);
            _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 1);
        });
        EXPECT_EQ(shell.Output(), "");
        EXPECT_EQ(shell.End(), kFine);
    }
}

} // namespace
