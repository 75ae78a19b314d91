// Child processes through the exported functions.
#include "process/children.h"

#include <qvcore6/file.h>

#include <fcntl.h>

#include <algorithm>
#include <climits>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "support/own_folder.h"

using namespace qv::test;
namespace fs = std::filesystem;

namespace
{

// The current one as long as this lives.
struct Folder
{
    Folder() { fs::current_path(own.Bytes()); }
    ~Folder() { fs::current_path(".."); }

    OwnFolder own{fs::current_path().string()};
};

void Add(const char* name, const char* text, fs::perms rights = fs::perms::owner_all)
{
    std::ofstream(name) << text;
    fs::permissions(name, rights);
}

TEST_F(Process, TheExactNameIsPreferredToTheOneWithoutSuffix)
{
    const Folder folder;
    Add("both", "#!/bin/sh\necho plain");
    Add("both.exe", "#!/bin/sh\necho suffix");
    Add("lone", "#!/bin/sh\necho lone");
    Add("lone.EXE", "#!/bin/sh\necho upper");
    Add("a b", "#!/bin/sh\necho $1");
    Add("locked", "#!/bin/sh\n", fs::perms::owner_read);
    Add("broken.exe", "#!/no/such/interpreter\n");
    Add("empty", "");
    fs::create_directory("folder");

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
        {u"a b", "b.exe\n"}, // the name stands unquoted in the command line
    };
    for (const auto& run : runs) {
        EXPECT_EQ(OutputOf(run.program, nullptr), run.output);
        EXPECT_EQ(OutputOf(run.program, nullptr, u"/"), run.output)
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
        {nullptr, nullptr, QV_E_FILE_NOT_FOUND},
        {u"broken", nullptr, QV_E_FILE_NOT_FOUND},
        {u"folder", nullptr, E_ACCESSDENIED},
        {u"locked", nullptr, E_ACCESSDENIED},
        {u"empty", nullptr, E_FAIL},
        {tooLong.c_str(), nullptr, E_FAIL},
        {u"lone", u"missing", E_FAIL},
        {u"lone", tooLong.c_str(), E_FAIL},
    };
    for (const auto& failure : failures) {
        Streams streams = kPipes;
        QVHandle process = 0;
        EXPECT_EQ(QVProcessCreate(failure.program, nullptr, failure.directory, nullptr, 0,
                                  streams.data(), &process),
                  failure.result);
        EXPECT_EQ(process, QV_HANDLE_NONE);
        EXPECT_EQ(streams, kPipes);
    }
}

TEST_F(Process, TheChildGetsTheArgumentsOfTheCommandLine)
{
    const struct
    {
        const QVWChar* arguments;
        const char* expected; // each with a bar behind it
    } rows[] = {
        {u"", ""},
        {u" \t a  b\tc ", "a|b|c|"},
        {u"\"a b\" c\" \"d \"\"", "a b|c d||"},
        {u"a\\\\b \\\\c\\ \\", "a\\\\b|\\\\c\\|\\|"},
        {u"a\\\"b a\\\\\"b c\" a\\\\\\\"b", "a\"b|a\\b c|a\\\"b|"},
        {u"\"a\"\"b c\" d", "a\"b c|d|"},
        {u"\"open \\\\", "open \\\\|"},
        {u"\u00fc\U0001f600 \xdcff\xdc80 \xd800", "\u00fc\U0001f600|\xff\x80|\xed\xa0\x80|"},
    };
    for (const auto& row : rows) {
        const std::u16string line = u"%s| first " + std::u16string(row.arguments);
        EXPECT_EQ(OutputOf(u"/usr/bin/printf", line.c_str()), "first|" + std::string(row.expected));
    }
    EXPECT_STREQ(OutputOf(u"/bin/cat", u"/proc/self/cmdline").c_str(), "/bin/cat.exe");
}

TEST_F(Process, TheEnvironmentIsTheGivenOneSortedOrTheParents)
{
    const QVWChar* const given[] = {u"b=1", u"", u"A=2", u"c=\u00e4", u"B=3", nullptr};
    const QVWChar* const empty[] = {nullptr};
    EXPECT_EQ(OutputOf(u"/usr/bin/env", nullptr, nullptr, given), "A=2\nb=1\nB=3\nc=\u00e4\n");
    EXPECT_EQ(OutputOf(u"/usr/bin/env", nullptr, nullptr, empty), "");
    std::string own;
    for (char** string = environ; *string != nullptr; ++string) {
        own.append(*string).append("\n");
    }
    EXPECT_EQ(OutputOf(u"/usr/bin/env", nullptr), own);
    EXPECT_EQ(OutputOf(u"/bin/pwd", nullptr, u"\\proc"), "/proc\n");
}

TEST_F(Process, AnEndThatNobodyReadsGivesAnErrorAndNoSignal)
{
    const Folder folder;
    // Numbers that the host has freed by itself, of files that can be written to without a signal.
    QVHandle files[2];
    for (QVHandle& file : files) {
        EXPECT_GE(QVFileOpen(u"plain", QV_FILE_WRITE | QV_FILE_CREATE, 0600, &file), 0);
    }
    std::for_each(std::begin(files), std::end(files), close);
    Copier ended;
    EXPECT_EQ(ended.streams[0], files[1]);
    kill(IdOf(ended.process), SIGKILL);
    EXPECT_EQ(Join(ended.process), 137u);
    uint32_t written;
    EXPECT_EQ(QVFileWrite(ended.streams[0], "unread", 6, &written), E_FAIL);
    ended.Wake();
}

std::string Descriptors()
{
    return OutputOf(u"/bin/ls", u"/proc/self/fd");
}

// Standard numbers of the parent as the child's streams in another order, and pipes in a parent
// that has closed some of them.
TEST_F(Process, StandardNumbersOfTheParentMayBeAnything)
{
    EXPECT_TRUE(Child([] {
                    closefrom(3);
                    int ends[2];
                    int back[2];
                    bool isRight = pipe2(ends, O_CLOEXEC) == 0 && pipe2(back, O_CLOEXEC) == 0;
                    // Input and output change places.
                    dup3(back[1], 0, O_CLOEXEC);
                    dup3(ends[0], 1, O_CLOEXEC);
                    close(back[1]);
                    close(ends[0]);
                    Streams streams = {1, 0, 2};
                    QVHandle process;
                    isRight = isRight && Start(u"/bin/cat", nullptr, &streams, &process) == S_OK &&
                              write(ends[1], "x", 1) == 1;
                    close(ends[1]);
                    close(0);
                    close(1);
                    isRight = isRight && ReadAll(back[0]) == "x" && Join(process) == 0;
                    // With 0 and 1 free: the pipes and the handle of the process stay off them.
                    isRight = isRight && Descriptors() == "0\n1\n2\n3\n";
                    process = StartShell(u"exit 3");
                    return isRight && process > 2 && Join(process) == 3 && fcntl(0, F_GETFD) < 0 &&
                           fcntl(1, F_GETFD) < 0;
                }).Succeeded());
}

TEST_F(Process, NothingButItsStreamsReachesTheChild)
{
    EXPECT_TRUE(Child([] {
                    closefrom(3);
                    const Copier other;
                    std::signal(SIGHUP, SIG_IGN);
                    std::signal(SIGRTMIN + 3, SIG_IGN);
                    sigset_t mask;
                    sigfillset(&mask);
                    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
                    const bool isClean =
                        Descriptors() == "0\n1\n2\n3\n" &&
                        OutputOf(u"/bin/grep", u"-E Sig(Blk|Ign) /proc/self/status") ==
                            "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n";
                    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
                    return isClean && sigismember(&mask, SIGUSR1) == 1; // the caller keeps its own
                }).Succeeded());
}

TEST_F(Process, TheExitCodeTellsStatusOrSignal)
{
    EXPECT_EQ(Join(StartShell(u"exit 255")), 255u);
    Copier copier;
    uint32_t code = 0;
    EXPECT_EQ(QVProcessGetExitCode(copier.process, &code), E_FAIL);
    EXPECT_EQ(code, 0xFFFFFFFFu);
    copier.Wake();
    EXPECT_TRUE(Becomes([&] { return QVProcessGetExitCode(copier.process, &code) == S_OK; }));
    EXPECT_EQ(code, 0u);
    EXPECT_EQ(fcntl(copier.process, F_GETFD), -1);
}

TEST_F(Process, OnlyHandlesOfProcessesAreTaken)
{
    uint32_t code = 0;
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    // An idle pipe would keep a wait for ever; one has the number of a child that the host closed.
    const QVHandle child = StartShell(u"exit 0");
    ASSERT_EQ(dup3(ends[0], child, O_CLOEXEC), child);
    for (const QVHandle wrong : {ends[0], child, 1 << 20, -7}) {
        EXPECT_EQ(QVProcessJoin(wrong, &code), E_HANDLE);
        EXPECT_EQ(QVProcessGetExitCode(wrong, &code), E_HANDLE);
        EXPECT_EQ(code, 0xFFFFFFFFu);
    }
    EXPECT_EQ(QVProcessDetach(child), E_HANDLE);
    EXPECT_EQ(QVProcessDetach(1 << 20), E_HANDLE);
    EXPECT_GT(waitpid(-1, nullptr, 0), 0);
    EXPECT_TRUE(NothingIsLeft());
    EXPECT_EQ(QVFileClose(child), S_OK);
    EXPECT_EQ(QVProcessJoin(QVProcessGetHandle(), &code), E_FAIL);
    EXPECT_EQ(QVProcessGetExitCode(QVProcessGetHandle(), &code), E_FAIL);
    EXPECT_EQ(QVProcessDetach(QVProcessGetHandle()), S_OK);
    Streams streams = {QV_HANDLE_NONE, 1 << 20, QV_HANDLE_NONE};
    const Streams before = streams;
    QVHandle process;
    EXPECT_EQ(Start(u"/bin/cat", nullptr, &streams, &process), E_HANDLE);
    EXPECT_EQ(streams, before);
    std::for_each(std::begin(ends), std::end(ends), close);
}

TEST_F(Process, AJoinForAnyTakesTheLowestAndRefusesMoreThan64)
{
    QVHandle process = 0;
    std::vector<Copier> copiers(65);
    EXPECT_EQ(QVProcessJoinChild(&process, nullptr), E_FAIL);
    EXPECT_EQ(process, QV_HANDLE_NONE);
    const auto end = [&](std::size_t i) {
        copiers[i].Wake();
        siginfo_t info = {};
        const auto handle = static_cast<id_t>(copiers[i].process);
        EXPECT_EQ(waitid(P_PIDFD, handle, &info, WEXITED | WNOWAIT), 0);
        return copiers[i].process;
    };
    Join(end(64));
    const QVHandle higher = end(40);
    const QVHandle lower = end(3);
    for (const QVHandle expected : {lower, higher}) {
        EXPECT_EQ(QVProcessJoinChild(&process, nullptr), S_OK);
        EXPECT_EQ(process, expected);
    }
    for (int left = 62; left > 0; --left) {
        std::for_each(copiers.begin(), copiers.end(), [](Copier& copier) { copier.Wake(); });
        uint32_t code = 1;
        EXPECT_EQ(QVProcessJoinChild(&process, &code), S_OK);
        EXPECT_EQ(code, 0u);
    }
}

TEST_F(Process, NamesAreTheFileNamesOfPrograms)
{
    char name[64];
    const std::string own = fs::read_symlink("/proc/self/exe").filename().string();
    EXPECT_EQ(QVProcessGetName(QVProcessGetID(), name, sizeof name), 1);
    EXPECT_EQ(name, own);
    EXPECT_EQ(QVProcessGetName(QVProcessGetID(), name, 5), 1);
    EXPECT_EQ(name, own.substr(0, 4));
    EXPECT_EQ(QVProcessGetName(QVProcessGetID(), nullptr, 0), 0);
    EXPECT_EQ(QVProcessGetName(0x7FFFFFFF, name, sizeof name), 0);
    EXPECT_EQ(name, own.substr(0, 4)) << "untouched";

    const Folder folder;
    for (const QVWChar* const program : {u"gone", u"kept (deleted)"}) {
        const fs::path file(program);
        fs::copy_file("/bin/cat", file);
        Copier copier(program);
        if (file == "gone") {
            fs::remove(file);
        }
        const auto id = static_cast<uint32_t>(IdOf(copier.process));
        EXPECT_EQ(QVProcessGetName(id, name, sizeof name), 1);
        EXPECT_EQ(name, file.string());
        copier.Wake();
        Join(copier.process);
        EXPECT_EQ(QVProcessGetName(id, name, sizeof name), 0);
    }
}

} // namespace
