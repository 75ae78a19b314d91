// Diagnostics as a process's surroundings see them: its standard error, its terminal, its log, and
// how it ends. Each case is a process of its own.
#include <gtest/gtest.h>
#include <qvcore6/diagnostics.h>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <syslog.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace
{

constexpr int kFine = 42;
constexpr unsigned kPatience = 60; // seconds; a case that hangs is ended

const QVWChar* const kNoText = reinterpret_cast<const QVWChar*>(1); // whoever reads it crashes

struct Pipe
{
    Pipe() { EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0); }
    std::array<int, 2> ends{};
};

std::string ReadAll(int file)
{
    std::string all;
    char bytes[4096];
    for (ssize_t size; (size = read(file, bytes, sizeof bytes)) > 0;) {
        all.append(bytes, static_cast<std::size_t>(size));
    }
    return all;
}

struct Ended
{
    bool IsFine() const { return WIFEXITED(status) && WEXITSTATUS(status) == kFine; }
    bool IsKilledBy(int signal) const { return WIFSIGNALED(status) && WTERMSIG(status) == signal; }
    int status;
    std::string output;
};

// In a session of its own, so without a terminal; standard error goes to the result.
Ended InChild(const std::function<void()>& body)
{
    Pipe output;
    const pid_t child = fork();
    if (child == 0) {
        setsid();
        alarm(kPatience);
        dup2(output.ends[1], STDERR_FILENO);
        close(output.ends[0]);
        close(output.ends[1]);
        body();
        _exit(kFine);
    }
    close(output.ends[1]);
    Ended ended{0, ReadAll(output.ends[0])};
    close(output.ends[0]);
    waitpid(child, &ended.status, 0);
    return ended;
}

TEST(Trace, WritesTheThreadAndTheText)
{
    const Ended ended = InChild([] {
        dprintf(STDERR_FILENO, "%#x\n", static_cast<unsigned>(gettid()));
        QVTrace(u"%ls, %hs: %d\n", u"gr\u00FC\u00DFe \U0001F600", "n\xC3\xA4rrow", 5);
        QVTrace(nullptr);
        QVTrace(u"%s|", std::u16string(600, u'\u20AC').c_str());
        QVTrace(u"half \xD83D\n");
    });
    EXPECT_TRUE(ended.IsFine());
    const std::string id = ended.output.substr(0, ended.output.find('\n'));
    const std::string head = "[" + id + "]";
    std::string euros;
    for (int i = 0; i < 511; ++i) {
        euros += "\xE2\x82\xAC";
    }
    EXPECT_EQ(ended.output, id + "\n" + head +
                                "gr\xC3\xBC\xC3\x9F"
                                "e \xF0\x9F\x98\x80, n\xC3\xA4rrow: 5\n" +
                                head + "(null)" + head + euros + head + "half \xEF\xBF\xBD\n");
}

TEST(Trace, PiecesOfThreadsStayTogether)
{
    constexpr int kThreads = 4;
    constexpr int kTraces = 400;
    const Ended ended = InChild([] {
        std::vector<std::thread> threads;
        for (int number = 0; number < kThreads; ++number) {
            threads.emplace_back([number] {
                for (int i = 0; i < kTraces; ++i) {
                    QVTrace(u"%d %d %0*d\n", number, i, 1 + i, 7);
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    });
    EXPECT_TRUE(ended.IsFine());
    std::istringstream lines(ended.output);
    std::map<unsigned, int> numberOfId;
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        unsigned id = 0;
        int number = 0;
        int index = 0;
        int start = 0;
        ASSERT_EQ(std::sscanf(line.c_str(), "[%x]%d %d %n", &id, &number, &index, &start), 3)
            << line;
        EXPECT_EQ(numberOfId.emplace(id, number).first->second, number) << line;
        EXPECT_EQ(line.substr(static_cast<std::size_t>(start)),
                  std::string(static_cast<std::size_t>(index), '0') + "7");
    }
    EXPECT_EQ(count, kThreads * kTraces);
    EXPECT_EQ(numberOfId.size(), static_cast<std::size_t>(kThreads));
}

TEST(Trace, HarmsNothingWithoutAReader)
{
    EXPECT_TRUE(InChild([] {
                    const Pipe unread;
                    close(unread.ends[0]);
                    dup2(unread.ends[1], STDERR_FILENO);
                    errno = 77;
                    QVTrace(u"lost");
                    if (errno != 77) {
                        _exit(1);
                    }
                }).IsFine());
    EXPECT_TRUE(InChild([] {
                    close(STDERR_FILENO);
                    QVTrace(u"lost");
                    QVAssert(nullptr, nullptr, 0);
                }).IsKilledBy(SIGTRAP));
}

constinit int g_ticks = -1;

// The write waits in a full pipe, is interrupted again and again, and still gives the whole text.
TEST(Trace, GoesOnAfterSignals)
{
    Pipe ticks;
    Pipe output;
    const pid_t child = fork();
    if (child == 0) {
        alarm(kPatience);
        dup2(output.ends[1], STDERR_FILENO);
        fcntl(STDERR_FILENO, F_SETFL, O_NONBLOCK);
        while (write(STDERR_FILENO, "x", 1) == 1) {
        }
        fcntl(STDERR_FILENO, F_SETFL, 0);
        g_ticks = ticks.ends[1];
        struct sigaction action = {};
        action.sa_handler = [](int) { EXPECT_EQ(write(g_ticks, "t", 1), 1); };
        sigaction(SIGALRM, &action, nullptr);
        const itimerval often = {{0, 2000}, {0, 2000}};
        setitimer(ITIMER_REAL, &often, nullptr);
        QVTrace(u"whole %0500d", 1);
        _exit(kFine);
    }
    close(output.ends[1]);
    close(ticks.ends[1]);
    char bytes[5];
    for (char& byte : bytes) {
        EXPECT_EQ(read(ticks.ends[0], &byte, 1), 1);
    }
    const std::string all = ReadAll(output.ends[0]);
    close(output.ends[0]);
    close(ticks.ends[0]);
    Ended ended{0, {}};
    waitpid(child, &ended.status, 0);
    EXPECT_TRUE(ended.IsFine());
    const std::string whole = "]whole " + std::string(499, '0') + "1";
    EXPECT_EQ(all.substr(all.size() - std::min(all.size(), whole.size())), whole);
}

TEST(Alert, IsSilentWithoutAMethod)
{
    const Ended ended = InChild([] {
        QVErrorAlert(0, kNoText, kNoText);
        QVErrorAlert(0, u"t", u"%s", kNoText);
    });
    EXPECT_TRUE(ended.IsFine());
    EXPECT_EQ(ended.output, "");
}

TEST(Alert, BreaksWithoutFormatting)
{
    EXPECT_TRUE(InChild([] {
                    std::signal(SIGTRAP, [](int) {});
                    QVErrorAlert(QV_ALERT_BREAK, kNoText, kNoText);
                }).IsFine());
    EXPECT_TRUE(InChild([] { QVErrorAlert(2, u"t", u"f"); }).IsKilledBy(SIGTRAP));
}

TEST(Assert, TracesAndBreaksUnlessThereIsAMethod)
{
    const Ended ended = InChild([] { QVAssert("left == right", "orders.c", 12); });
    EXPECT_TRUE(ended.IsKilledBy(SIGTRAP));
    EXPECT_EQ(ended.output.substr(ended.output.find(']') + 1),
              "\nQV_ASSERT(left == right)\n orders.c:12\n");
}

// What the log gets: through a socket in a /dev of its own, or, where the test may not have one,
// through the C library's copy to standard error.
std::string LogOf(const std::function<void()>& body)
{
    const Ended ended = InChild([&] {
        const bool isAlone =
            (unshare(CLONE_NEWNS) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0) &&
            mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
            mount("none", "/dev", "tmpfs", 0, nullptr) == 0;
        sockaddr_un address = {AF_UNIX, "/dev/log"};
        const int log = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (!isAlone || bind(log, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
            openlog("fallback", LOG_PERROR, LOG_USER);
            dprintf(STDERR_FILENO, "<14>");
            body();
            return;
        }
        body();
        char bytes[8192];
        for (ssize_t size; (size = recv(log, bytes, sizeof bytes, MSG_DONTWAIT)) > 0;) {
            dprintf(STDERR_FILENO, "%.*s\n", static_cast<int>(size), bytes);
        }
    });
    EXPECT_TRUE(ended.IsFine());
    return ended.output;
}

TEST(Alert, WritesToTheLog)
{
    const std::string long600(600, 'y');
    const struct
    {
        std::function<void()> body;
        std::string entry;
    } rows[] = {
        {[] { QVErrorAlert(QV_ALERT_EVENT_LOG, u"Orders", u"%d %hs", 5, "l\xC3\xB6st %s%n"); },
         "Orders: 5 l\xC3\xB6st %s%n"},
        {[] { QVErrorAlert(QV_ALERT_EVENT_LOG, nullptr, u"text"); }, ": text"},
        {[&] { QVErrorAlert(8, u"T", u"%hs", long600.c_str()); }, "T: " + std::string(511, 'y')},
        {[] {
             QVErrorAlertSetMethod(QV_ALERT_EVENT_LOG);
             close(STDOUT_FILENO);
             QVErrorAlert(0, u"a", u"b");
             // The log's socket has not taken the number.
             if (fcntl(STDOUT_FILENO, F_GETFD) != -1) {
                 _exit(1);
             }
         },
         "a: b"},
    };
    for (const auto& row : rows) {
        const std::string log = LogOf(row.body);
        const std::string end = ": Quillon Services: " + row.entry + "\n";
        EXPECT_EQ(log.rfind("<14>", 0), 0u) << log;
        EXPECT_TRUE(log.size() >= end.size() && log.substr(log.size() - end.size()) == end) << log;
    }
}

TEST(Assert, GoesByTheStandingMethod)
{
    const std::string log = LogOf([] {
        QVErrorAlertSetMethod(QV_ALERT_EVENT_LOG);
        QVAssert("a<b", "f.c", 3);
    });
    EXPECT_NE(log.find(": Quillon Services: Quillon Services: Quillon Services Debug Assertion "
                       "Failed!\n\nFile: f.c\nLine: 3\n\nExpression: a<b\n"),
              std::string::npos)
        << log;
}

// A process with a terminal of its own, which somebody looks at from the other side.
class OnTerminal
{
public:
    explicit OnTerminal(const std::function<void()>& body)
    {
        m_child = forkpty(&m_screen, nullptr, nullptr, nullptr);
        if (m_child == 0) {
            alarm(kPatience);
            body();
            _exit(kFine);
        }
    }
    ~OnTerminal() { HangUp(); }
    OnTerminal(const OnTerminal&) = delete;
    OnTerminal& operator=(const OnTerminal&) = delete;

    // What has appeared since the last look, as soon as it ends so.
    std::string ReadUntil(const std::string& end)
    {
        std::string seen;
        char byte;
        while (read(m_screen, &byte, 1) == 1) {
            seen += byte;
            if (seen.size() >= end.size() && seen.substr(seen.size() - end.size()) == end) {
                break;
            }
        }
        return seen;
    }
    void Type(const std::string& keys)
    {
        EXPECT_EQ(write(m_screen, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }
    void HangUp()
    {
        if (m_screen >= 0) {
            close(m_screen);
        }
        m_screen = -1;
    }
    Ended Wait()
    {
        Ended ended{0, {}};
        waitpid(m_child, &ended.status, 0);
        return ended;
    }
    pid_t Child() const { return m_child; }

private:
    int m_screen = -1;
    pid_t m_child;
};

const std::string kQuestion = "(A)bort, (R)etry or (I)gnore? ";

TEST(MessageBox, DoesWhatIsAnswered)
{
    const struct
    {
        const char* keys;
        int questions;
        int signal; // 0: the process goes on
    } rows[] = {
        {"a\n", 1, SIGABRT}, {"Abort\n", 1, SIGABRT},      {"r\n", 1, SIGTRAP}, {"i\n", 1, 0},
        {"  I\n", 1, 0},     {"x\n\nRetry\n", 3, SIGTRAP}, {"\x04", 1, 0},
    };
    for (const auto& row : rows) {
        OnTerminal program([] { QVErrorAlert(1, u"Orders", u"disk %d full", 3); });
        const std::string box = program.ReadUntil(kQuestion);
        EXPECT_NE(box.find("Orders [Process ID " + std::to_string(program.Child()) + "]\r\n"),
                  std::string::npos)
            << box;
        EXPECT_NE(box.find("disk 3 full\r\n\r\nPress retry to debug the application.\r\n"),
                  std::string::npos)
            << box;
        program.Type(row.keys);
        for (int i = 1; i < row.questions; ++i) {
            program.ReadUntil(kQuestion);
        }
        const Ended ended = program.Wait();
        EXPECT_TRUE(row.signal == 0 ? ended.IsFine() : ended.IsKilledBy(row.signal))
            << row.keys << ' ' << ended.status;
    }
}

TEST(MessageBox, AbortRunsTheHandlerAndThenExits)
{
    OnTerminal program([] {
        std::signal(SIGABRT, [](int) { EXPECT_EQ(write(STDERR_FILENO, "handled", 7), 7); });
        QVErrorAlert(QV_ALERT_MESSAGE_BOX, nullptr, u"");
    });
    EXPECT_NE(program.ReadUntil(kQuestion).find("QVErrorAlert [Process ID "), std::string::npos);
    program.Type("a\n");
    EXPECT_NE(program.ReadUntil("handled").find("handled"), std::string::npos);
    const int status = program.Wait().status;
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 3) << status;
}

TEST(MessageBox, ReadsALineOfAnyLength)
{
    OnTerminal program([] {
        // Without this the kernel would cut the line.
        termios mode = {};
        tcgetattr(STDIN_FILENO, &mode);
        mode.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
        tcsetattr(STDIN_FILENO, TCSANOW, &mode);
        QVErrorAlert(QV_ALERT_MESSAGE_BOX, u"t", u"m");
    });
    program.ReadUntil(kQuestion);
    const std::string part(1000, 'a');
    program.Type("z");
    for (int i = 0; i < 10; ++i) {
        program.Type(part);
    }
    program.Type("\n");
    program.ReadUntil(kQuestion);
    program.Type("i\r");
    EXPECT_TRUE(program.Wait().IsFine());
}

TEST(MessageBox, IsNotAnsweredBeforeItIsSeen)
{
    OnTerminal program([] {
        pollfd typed = {STDIN_FILENO, POLLIN, 0};
        poll(&typed, 1, -1);
        QVErrorAlert(QV_ALERT_MESSAGE_BOX, u"t", u"m");
    });
    program.Type("abort\n");
    program.ReadUntil(kQuestion);
    program.Type("i\n");
    EXPECT_TRUE(program.Wait().IsFine());
}

TEST(MessageBox, GoesOnWhenTheTerminalGoesAway)
{
    OnTerminal program([] {
        std::signal(SIGHUP, SIG_IGN);
        QVErrorAlert(QV_ALERT_MESSAGE_BOX, u"t", u"m");
    });
    program.ReadUntil(kQuestion);
    program.HangUp();
    EXPECT_TRUE(program.Wait().IsFine());
}

TEST(MessageBox, NobodyIsAskedInTheBackgroundOrWithoutATerminal)
{
    EXPECT_TRUE(InChild([] { QVErrorAlert(QV_ALERT_MESSAGE_BOX, u"t", u"m"); }).IsFine());
    OnTerminal shell([] {
        const pid_t job = fork();
        if (job == 0) {
            setpgid(0, 0);
            QVErrorAlert(QV_ALERT_MESSAGE_BOX, u"t", u"m");
            _exit(kFine);
        }
        int status = 0;
        waitpid(job, &status, WUNTRACED);
        _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 1);
    });
    EXPECT_TRUE(shell.Wait().IsFine());
}

} // namespace
