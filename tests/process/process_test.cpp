// Child processes through the exported functions.
#include "process/children.h"

#include <qvcore6/file.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <climits>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>

using namespace qv::test;
namespace fs = std::filesystem;

namespace
{

constexpr const QVWChar* kChild = QV_TEST_CHILD_WIDE;

// A folder of its own, which is the current one as long as this lives.
class Folder
{
public:
    Folder() : m_before(fs::current_path()), m_path(m_before / OwnName("process"))
    {
        fs::create_directory(m_path);
        fs::current_path(m_path);
    }
    ~Folder()
    {
        fs::current_path(m_before);
        fs::remove_all(m_path);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    void Add(const char* name, const char* text, fs::perms rights = fs::perms::owner_all) const
    {
        std::ofstream(name) << text;
        fs::permissions(name, rights);
    }

private:
    fs::path m_before;
    fs::path m_path;
};

TEST(Process, TheExactNameIsPreferredToTheOneWithoutSuffix)
{
    const Folder folder;
    folder.Add("both", "#!/bin/sh\necho plain");
    folder.Add("both.exe", "#!/bin/sh\necho suffix");
    folder.Add("lone", "#!/bin/sh\necho lone");
    folder.Add("lone.EXE", "#!/bin/sh\necho upper");
    folder.Add("a b", "#!/bin/sh\necho \"$0 $1\"");
    folder.Add("locked", "#!/bin/sh\n", fs::perms::owner_read);
    folder.Add("broken", "#!/no/such/interpreter\n");
    folder.Add("broken.exe", "#!/no/such/interpreter\n");
    folder.Add("empty", "");
    fs::create_directory("folder");
    fs::create_directory("lone.d");

    const struct
    {
        const QVWChar* program;
        const char* output;
    } runs[] = {
        {u"both", "suffix\n"},
        {u"both.exe", "suffix\n"},
        {u"./lone", "lone\n"},
        {u".\\lone.exe", "lone\n"},
        {u"lone.EXE", "upper\n"},
        {u"a b", "./a b b.exe\n"}, // the name stands unquoted in the command line
    };
    for (const auto& run : runs) {
        const std::u16string program =
            run.program[0] == u'a' ? u"./" + std::u16string(run.program) : run.program;
        EXPECT_EQ(OutputOf(program.c_str(), nullptr), run.output);
        EXPECT_EQ(OutputOf(program.c_str(), nullptr, u"/"),
                  run.program[0] == u'a' ? (fs::current_path() / "./a b b.exe\n").string()
                                         : run.output)
            << "relative to the folder of the parent, not to that of the child";
    }

    const std::u16string tooLong(PATH_MAX, u'x');
    const struct
    {
        const QVWChar* program;
        const QVWChar* directory;
        QVRESULT result;
    } failures[] = {
        {u"missing", nullptr, QV_E_FILE_NOT_FOUND},
        {u"lone/missing", nullptr, QV_E_FILE_NOT_FOUND},
        {u"missing/missing", nullptr, QV_E_FILE_NOT_FOUND},
        {u"", nullptr, QV_E_FILE_NOT_FOUND},
        {nullptr, nullptr, QV_E_FILE_NOT_FOUND},
        {u"folder/", nullptr, QV_E_FILE_NOT_FOUND},
        {u"broken", nullptr, QV_E_FILE_NOT_FOUND},
        {u"folder", nullptr, E_ACCESSDENIED},
        {u"locked", nullptr, E_ACCESSDENIED},
        {u"empty", nullptr, E_FAIL},
        {tooLong.c_str(), nullptr, E_FAIL},
        {u"lone", u"missing", E_FAIL},
        {u"lone", u"", E_FAIL},
        {u"lone", tooLong.c_str(), E_FAIL},
    };
    const auto descriptors = CountDescriptors();
    for (const auto& failure : failures) {
        Streams streams = kPipes;
        QVHandle process = 0;
        EXPECT_EQ(QVProcessCreate(failure.program, nullptr, failure.directory, nullptr, 0,
                                  streams.data(), &process),
                  failure.result);
        EXPECT_EQ(process, QV_HANDLE_NONE);
        EXPECT_EQ(streams, kPipes);
    }
    EXPECT_EQ(CountDescriptors(), descriptors);
    EXPECT_TRUE(HasNoChildren());
}

TEST(Process, TheChildGetsTheArgumentsOfTheCommandLine)
{
    using Strings = std::vector<std::string>;
    const struct
    {
        const QVWChar* arguments;
        Strings expected;
    } rows[] = {
        {u"", {}},
        {u" \t a  b\tc ", {"a", "b", "c"}},
        {u"\"a b\" c\" \"d \"\"", {"a b", "c d", ""}},
        {u"a\\\\b \\\\c\\ \\", {"a\\\\b", "\\\\c\\", "\\"}},
        {u"a\\\"b a\\\\\"b c\" a\\\\\\\"b", {"a\"b", "a\\b c", "a\\\"b"}},
        {u"\"a\"\"b c\" d", {"a\"b c", "d"}},
        {u"\"open \\\\", {"open \\\\"}},
        {u"\u00fc\U0001f600 \xdcff\xdc80 \xd800", {"\u00fc\U0001f600", "\xff\x80", "\xed\xa0\x80"}},
    };
    for (const auto& row : rows) {
        Strings strings =
            StringsIn(OutputOf(kChild, (u"arguments " + std::u16string(row.arguments)).c_str()));
        ASSERT_GE(strings.size(), 2u);
        EXPECT_EQ(strings[0], QV_TEST_CHILD ".exe");
        EXPECT_EQ(strings[1], "arguments");
        strings.erase(strings.begin(), strings.begin() + 2);
        EXPECT_EQ(strings, row.expected);
    }
}

TEST(Process, TheEnvironmentIsTheGivenOneSortedOrTheParents)
{
    const QVWChar* const given[] = {u"b=1", u"", u"A=2", u"c=\u00e4", u"B=3", nullptr};
    EXPECT_EQ(StringsIn(OutputOf(kChild, u"environment", nullptr, given)),
              (std::vector<std::string>{"A=2", "b=1", "B=3", "c=\u00e4"}));
    const QVWChar* const empty[] = {nullptr};
    EXPECT_EQ(OutputOf(kChild, u"environment", nullptr, empty), "");
    const auto own = StringsIn(OutputOf(kChild, u"environment"));
    for (char** string = environ; *string != nullptr; ++string) {
        EXPECT_NE(std::find(own.begin(), own.end(), *string), own.end()) << *string;
    }
}

TEST(Process, StreamsArePipesOrTheCallersHandles)
{
    // The child's input is ours, its output a pipe of ours, its errors a new pipe.
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    Streams streams = {QV_HANDLE_NONE, ends[1], QV_HANDLE_NONE};
    QVHandle process;
    ASSERT_EQ(Start("copy", &streams, &process), S_OK);
    EXPECT_EQ(streams[1], ends[1]);
    close(ends[1]);
    ASSERT_EQ(write(streams[0], "through", 7), 7);
    close(streams[0]);
    EXPECT_EQ(ReadAll(ends[0]), "through");
    EXPECT_EQ(ReadAll(streams[2]), "");
    close(ends[0]);
    close(streams[2]);
    uint32_t code = 7;
    EXPECT_EQ(QVProcessJoin(process, &code), S_OK);
    EXPECT_EQ(code, 0u);

    const Folder folder;
    // Numbers that the host has freed by itself, of files that can be written to without a signal.
    QVHandle files[2];
    for (QVHandle& file : files) {
        EXPECT_GE(QVFileOpen(u"plain", QV_FILE_WRITE | QV_FILE_CREATE, 0600, &file), 0);
    }
    std::for_each(std::begin(files), std::end(files), close);
    streams = kPipes;
    ASSERT_EQ(Start("exit 0", &streams, &process), S_OK);
    EXPECT_EQ(streams[0], files[1]);
    EXPECT_EQ(QVProcessJoin(process, nullptr), S_OK);
    uint32_t written;
    EXPECT_EQ(QVFileWrite(streams[0], "nobody reads", 12, &written), E_FAIL) << "and no SIGPIPE";
    for (const QVHandle stream : streams) {
        EXPECT_EQ(QVFileClose(stream), S_OK);
    }

    streams = {QV_HANDLE_NONE, 1 << 20, QV_HANDLE_NONE};
    const Streams before = streams;
    EXPECT_EQ(Start("copy", &streams, &process), E_HANDLE);
    EXPECT_EQ(streams, before);
}

// No signal blocked, none ignored, the streams, and what this program was started with itself.
std::string NothingElse()
{
    std::string seen = "0 0 0 1 2 ";
    for (int file = 3; file < 1024; ++file) {
        seen += fcntl(file, F_GETFD) == 0 ? std::to_string(file) + " " : "";
    }
    return seen;
}

// Standard numbers of the parent as the child's streams in another order, and pipes in a parent
// that has closed some of them.
TEST(Process, StandardNumbersOfTheParentMayBeAnything)
{
    EXPECT_TRUE(Child([] {
                    int ends[2];
                    int back[2];
                    const bool made = pipe2(ends, O_CLOEXEC) == 0 && pipe2(back, O_CLOEXEC) == 0;
                    // Input and output change places.
                    dup3(back[1], 0, O_CLOEXEC);
                    dup3(ends[0], 1, O_CLOEXEC);
                    close(back[1]);
                    close(ends[0]);
                    Streams streams = {1, 0, 2};
                    QVHandle process;
                    if (!made || Start("copy", &streams, &process) < 0) {
                        return false;
                    }
                    const bool isWritten = write(ends[1], "x", 1) == 1;
                    close(ends[1]);
                    close(0);
                    close(1);
                    if (!isWritten || ReadAll(back[0]) != "x" || QVProcessJoin(process, nullptr)) {
                        return false;
                    }
                    // With 0 and 1 free: the pipes and the handle of the process stay off them.
                    if (OutputOf(kChild, u"inherited") != NothingElse() ||
                        OutputOf(kChild, u"arguments x").empty()) {
                        return false;
                    }
                    return Start("exit 3", nullptr, &process) == S_OK && process > 2 &&
                           QVProcessJoin(process, nullptr) == S_OK && fcntl(0, F_GETFD) < 0 &&
                           fcntl(1, F_GETFD) < 0;
                }).Succeeded());
}

TEST(Process, NothingButItsStreamsReachesTheChild)
{
    Sleeper other;
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    struct sigaction ignore = {};
    struct sigaction old[2] = {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGHUP, &ignore, &old[0]);
    sigaction(SIGRTMIN + 3, &ignore, &old[1]);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const std::string seen = OutputOf(kChild, u"inherited");
    sigset_t after;
    pthread_sigmask(SIG_SETMASK, &before, &after);
    sigaction(SIGHUP, &old[0], nullptr);
    sigaction(SIGRTMIN + 3, &old[1], nullptr);

    EXPECT_EQ(seen, NothingElse());
    EXPECT_EQ(sigismember(&after, SIGUSR1), 1) << "the caller's mask is its own";
    EXPECT_EQ(OutputOf(kChild, u"folder", u"\\proc"), "/proc");
    other.Wake();
    EXPECT_EQ(QVProcessJoin(other.process, nullptr), S_OK);
}

TEST(Process, TheExitCodeTellsStatusOrSignal)
{
    const struct
    {
        const char* arguments;
        uint32_t code;
    } rows[] = {
        {"exit 0", 0}, {"exit 255", 255}, {"exit 259", 3}, {"signal 9", 137}, {"signal 13", 141},
    };
    for (const auto& row : rows) {
        QVHandle process;
        uint32_t code = 0;
        ASSERT_EQ(Start(row.arguments, nullptr, &process), S_OK);
        EXPECT_EQ(QVProcessJoin(process, &code), S_OK);
        EXPECT_EQ(code, row.code);
        EXPECT_EQ(fcntl(process, F_GETFD), -1);
    }
    Sleeper sleeper;
    uint32_t code = 0;
    EXPECT_EQ(QVProcessGetExitCode(sleeper.process, &code), E_FAIL);
    EXPECT_EQ(code, 0xFFFFFFFFu);
    sleeper.Wake();
    EXPECT_TRUE(Becomes([&] { return QVProcessGetExitCode(sleeper.process, &code) == S_OK; }));
    EXPECT_EQ(code, 0u);
    EXPECT_TRUE(HasNoChildren());
}

TEST(Process, OnlyHandlesOfProcessesAreTaken)
{
    uint32_t code = 0;
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const auto descriptors = CountDescriptors();
    // An idle pipe would keep a wait for ever.
    for (const QVHandle wrong : {ends[0], 1 << 20, -7}) {
        EXPECT_EQ(QVProcessJoin(wrong, &code), E_HANDLE);
        EXPECT_EQ(QVProcessGetExitCode(wrong, &code), E_HANDLE);
        EXPECT_EQ(code, 0xFFFFFFFFu);
    }
    EXPECT_EQ(QVProcessDetach(1 << 20), E_HANDLE);
    EXPECT_EQ(QVProcessJoin(QVProcessGetHandle(), &code), E_FAIL);
    EXPECT_EQ(QVProcessGetExitCode(QVProcessGetHandle(), &code), E_FAIL);
    EXPECT_EQ(QVProcessDetach(QVProcessGetHandle()), S_OK);
    // The number of a child, which the host closes by itself, comes again.
    QVHandle number;
    ASSERT_EQ(Start("exit 0", nullptr, &number), S_OK);
    ASSERT_EQ(dup3(ends[0], number, O_CLOEXEC), number);
    QVHandle child;
    EXPECT_EQ(QVProcessJoin(number, &code), E_HANDLE);
    EXPECT_EQ(QVProcessDetach(number), E_HANDLE);
    EXPECT_EQ(QVProcessJoinChild(&child, &code), E_FAIL) << "there are none";
    EXPECT_EQ(QVFileClose(number), S_OK);
    EXPECT_GT(waitpid(-1, nullptr, 0), 0);
    EXPECT_EQ(CountDescriptors(), descriptors);
    close(ends[0]);
    close(ends[1]);
}

TEST(Process, AJoinForAnyTakesTheLowestAndRefusesMoreThan64)
{
    QVHandle process = 0;
    uint32_t code = 0;
    EXPECT_EQ(QVProcessJoinChild(&process, &code), E_FAIL) << "there are none";
    EXPECT_EQ(process, QV_HANDLE_NONE);

    std::vector<Sleeper> sleepers(64);
    QVHandle last;
    ASSERT_EQ(Start("exit 5", nullptr, &last), S_OK);
    EXPECT_EQ(QVProcessJoinChild(&process, &code), E_FAIL) << "65";
    EXPECT_EQ(QVProcessJoin(last, &code), S_OK);
    sleepers[0].Wake();
    EXPECT_EQ(QVProcessJoin(sleepers[0].process, &code), S_OK);
    ASSERT_EQ(close(sleepers[7].process), 0) << "behind the library's back";
    ASSERT_EQ(Start("exit 6", nullptr, &last), S_OK);
    EXPECT_EQ(QVProcessJoinChild(&process, &code), S_OK);
    EXPECT_EQ(process, last);
    EXPECT_EQ(code, 6u);

    const auto hasEnded = [](QVHandle child) {
        siginfo_t info = {};
        return waitid(P_PIDFD, static_cast<id_t>(child), &info, WEXITED | WNOWAIT) == 0;
    };
    for (const int i : {40, 3}) {
        sleepers[static_cast<std::size_t>(i)].Wake();
        ASSERT_TRUE(hasEnded(sleepers[static_cast<std::size_t>(i)].process));
    }
    for (const int i : {3, 40}) {
        EXPECT_EQ(QVProcessJoinChild(&process, nullptr), S_OK);
        EXPECT_EQ(process, sleepers[static_cast<std::size_t>(i)].process);
    }
    for (Sleeper& sleeper : sleepers) {
        sleeper.Wake();
    }
    for (int left = 60; left > 0; --left) {
        EXPECT_EQ(QVProcessJoinChild(&process, &code), S_OK);
    }
    EXPECT_EQ(QVProcessJoinChild(&process, &code), E_FAIL);
    EXPECT_GT(waitpid(-1, nullptr, 0), 0) << "the one whose handle was closed";
    EXPECT_TRUE(HasNoChildren());
}

TEST(Process, NamesAreTheFileNamesOfPrograms)
{
    char name[64];
    const std::string own = fs::read_symlink("/proc/self/exe").filename().string();
    std::fill(std::begin(name), std::end(name), 'x');
    EXPECT_EQ(QVProcessGetName(QVProcessGetID(), name, sizeof name), 1);
    EXPECT_EQ(name, own);
    EXPECT_EQ(name[sizeof name - 1], '\0');
    EXPECT_EQ(QVProcessGetName(QVProcessGetID(), name, 5), 1);
    EXPECT_EQ(name, own.substr(0, 4));
    EXPECT_EQ(QVProcessGetName(QVProcessGetID(), nullptr, 0), 0);
    for (const uint32_t none : {0u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        EXPECT_EQ(QVProcessGetName(none, name, sizeof name), 0);
    }
    EXPECT_EQ(name, own.substr(0, 4)) << "untouched";

    const Folder folder;
    for (const char* file : {"gone", "kept (deleted)"}) {
        fs::copy_file(QV_TEST_CHILD, file);
        Streams streams = kPipes;
        QVHandle process;
        const std::u16string program = u"./" + Wide(file);
        ASSERT_EQ(QVProcessCreate(program.c_str(), u"copy", nullptr, nullptr, 0, streams.data(),
                                  &process),
                  S_OK);
        const auto id = static_cast<uint32_t>(IdOf(process));
        if (std::string(file) == "gone") {
            fs::remove(file);
        }
        EXPECT_EQ(QVProcessGetName(id, name, sizeof name), 1);
        EXPECT_STREQ(name, file);
        for (const QVHandle stream : streams) {
            close(stream);
        }
        EXPECT_EQ(QVProcessJoin(process, nullptr), S_OK);
        EXPECT_EQ(QVProcessGetName(id, name, sizeof name), 0);
    }
}

} // namespace
