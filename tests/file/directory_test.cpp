// Folders: what a scan says of their entries, under all kinds of names, times and failures.
#include <gtest/gtest.h>
#include <qvcore6/directory.h>
#include <qvcore6/file.h>
#include <qvcore6/result.h>
#include <qvcore6/time.h>

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <fstream>
#include <map>
#include <random>
#include <string>

#include "file/posix_times.h"
#include "platform/directory.h"
#include "platform/error.h"
#include "platform/find_pattern.h"
#include "support/alloc_faults.h"
#include "support/child_process.h"
#include "support/own_folder.h"

using namespace qv::test;

namespace
{

constinit const char* g_failing = ""; // the call that fails
constinit int g_errno = 0;

bool Fails(const char* call)
{
    if (std::string_view(g_failing) != call) {
        return false;
    }
    errno = g_errno;
    return true;
}

} // namespace

extern "C"
{
    decltype(statx) __real_statx;
    long __real_syscall(long number, ...);

    int __wrap_statx(int folder, const char* path, int flags, unsigned mask, struct statx* result)
    {
        return Fails("statx") ? -1 : __real_statx(folder, path, flags, mask, result);
    }
    long __wrap_syscall(long number, ...)
    {
        va_list arguments;
        va_start(arguments, number);
        long a[6];
        for (long& argument : a) {
            argument = va_arg(arguments, long);
        }
        va_end(arguments);
        return (number == SYS_openat && Fails("open")) ||
                       (number == SYS_getdents64 && Fails("getdents"))
                   ? -1
                   : __real_syscall(number, a[0], a[1], a[2], a[3], a[4], a[5]);
    }
}

namespace
{

using Entries = std::map<std::u16string, QVDirEntry>;

class Directory : public testing::Test
{
protected:
    ~Directory() override { g_failing = ""; }

    std::string Make(const std::string& name, mode_t mode = 0644)
    {
        std::ofstream(m_folder.Bytes(name)) << "12345";
        chmod(m_folder.Bytes(name).c_str(), mode);
        return m_folder.Bytes(name);
    }
    Entries Scan(const std::u16string& name = u"")
    {
        Entries entries;
        QVDir folder = QV_DIR_NONE;
        EXPECT_EQ(QVDirOpen(m_folder.Text(name).c_str(), &folder), S_OK);
        QVDirEntry entry;
        std::memset(&entry, 0x55, sizeof entry);
        for (int count = 0; QVDirRead(folder, &entry, 7) == S_OK; ++count) {
            EXPECT_EQ(entry.m_name, std::u16string(count == 0   ? u"."
                                                   : count == 1 ? u".."
                                                                : entry.m_name));
            EXPECT_EQ(entry.m_name[259], 0);
            EXPECT_EQ(entry.m_shortName[0] | entry.m_shortName[13], 0);
            EXPECT_TRUE(entries.emplace(entry.m_name, entry).second);
        }
        EXPECT_EQ(QVDirRead(folder, &entry, 0), E_FAIL) << "again";
        EXPECT_EQ(QVDirClose(folder), S_OK);
        return entries;
    }

    OwnFolder m_folder;
};

TEST_F(Directory, EntriesTellTheirKindAndSize)
{
    Make("file");
    Make("read-only", 0444);
    mkdir(m_folder.Bytes("folder").c_str(), 0755);
    mkdir(m_folder.Bytes("closed").c_str(), 0555);
    ASSERT_EQ(symlink("folder", m_folder.Bytes("to-folder").c_str()), 0);
    ASSERT_EQ(symlink("nowhere", m_folder.Bytes("to-nothing").c_str()), 0);
    ASSERT_EQ(symlink("circle", m_folder.Bytes("circle").c_str()), 0);
    ASSERT_EQ(truncate(Make("large").c_str(), (off_t{5} << 32) + 6), 0);
    const Entries entries = Scan();
    const struct
    {
        std::u16string name;
        uint32_t mode, high, low;
    } rows[] = {
        {u".", 040666, 0, 0},         {u"..", 040666, 0, 0},       {u"file", 0666, 0, 5},
        {u"read-only", 0444, 0, 5},   {u"folder", 040666, 0, 0},   {u"closed", 040444, 0, 0},
        {u"to-folder", 040666, 0, 0}, {u"to-nothing", 0666, 0, 7}, {u"circle", 0666, 0, 6},
        {u"large", 0666, 5, 6},
    };
    EXPECT_EQ(entries.size(), std::size(rows));
    for (const auto& row : rows) {
        const QVDirEntry& entry = entries.at(row.name);
        EXPECT_EQ(entry.m_mode, row.mode) << &row - rows;
        EXPECT_EQ(entry.m_sizeHigh, row.high);
        EXPECT_EQ(entry.m_sizeLow, row.low);
    }
    EXPECT_EQ(Scan(u"folder").size(), 2u);
}

TEST_F(Directory, EveryNameCanBeOpenedAgain)
{
    const std::string names[] = {
        "ascii",       "\xC3\xA4\xF0\x9F\x99\x82", "\xFF\xED\xA0\x80", "\xC3", "a\nb*?", "plain\\",
        "\xC3\xA4\\b", std::string(255, 'n')};
    for (const std::string& name : names) {
        Make(name);
    }
    const Entries entries = Scan();
    EXPECT_EQ(entries.size(), std::size(names) + 2);
    for (const auto& [name, entry] : entries) {
        QVHandle file = QV_HANDLE_NONE;
        ASSERT_EQ(chdir(m_folder.Bytes().c_str()), 0); // or the longest would be too long
        EXPECT_EQ(QVFileOpen(name.c_str(), QV_FILE_READ, 0, &file),
                  name[0] == u'.' ? E_ACCESSDENIED : S_OK);
        QVFileClose(file);
    }
    ASSERT_EQ(chdir("/"), 0);
}

TEST_F(Directory, PathsAreTakenAsTheyAreMeant)
{
    Make("C:x");
    Make("file");
    ASSERT_EQ(chdir(m_folder.Bytes().c_str()), 0);
    const struct
    {
        std::u16string path;
        QVRESULT result;
        std::u16string first;
    } rows[] = {
        {u".", S_OK, u"."},
        {m_folder.Text() + u"\\\\//", S_OK, u"."},
        {u"C:", S_OK, u"C:x"},
        {u"D:", QV_E_FILE_NOT_FOUND, u""},
        {u"", S_OK, u"."},
        {u"\\/", S_OK, u"."},
        {u"missing", QV_E_FILE_NOT_FOUND, u""},
        {u"file", E_FAIL, u""},
        {u"file/below", QV_E_FILE_NOT_FOUND, u""},
        {std::u16string(5000, u'x'), E_FAIL, u""},
    };
    for (const auto& row : rows) {
        QVDir folder = nullptr;
        EXPECT_EQ(QVDirOpen(row.path.c_str(), &folder), row.result) << &row - rows;
        EXPECT_EQ(folder == QV_DIR_NONE, row.result < 0);
        QVDirEntry entry = {};
        EXPECT_EQ(QVDirRead(folder, &entry, 0), row.result < 0 ? E_HANDLE : S_OK);
        EXPECT_EQ(std::u16string(entry.m_name), row.first);
        EXPECT_EQ(QVDirClose(folder), S_OK) << "also of none";
    }
    ASSERT_EQ(chdir("/"), 0);
}

TEST_F(Directory, ComeAndGo)
{
    const std::u16string path = m_folder.Text(u"new");
    EXPECT_EQ(QVDirCreate((path + u"/below").c_str(), 0), QV_E_FILE_NOT_FOUND);
    EXPECT_EQ(QVDirCreate(path.c_str(), 0), S_OK);
    EXPECT_EQ(QVDirCreate((path + u"\\").c_str(), 0), QV_E_ALREADY_EXISTS);
    EXPECT_EQ(QVDirCreate((path + u"/below").c_str(), 0777), S_OK);
    EXPECT_EQ(QVDirRemove(path.c_str()), E_FAIL);
    EXPECT_EQ(QVDirRemove((path + u"/below/.").c_str()), E_ACCESSDENIED) << "in use by its name";
    EXPECT_EQ(QVDirRemove((path + u"/below").c_str()), S_OK);
    chmod(m_folder.Bytes("new").c_str(), 0555);
    EXPECT_EQ(QVDirRemove(path.c_str()), E_ACCESSDENIED);
    chmod(m_folder.Bytes("new").c_str(), 0755);
    EXPECT_EQ(QVDirRemove(path.c_str()), S_OK);
    EXPECT_EQ(QVDirRemove(path.c_str()), QV_E_FILE_NOT_FOUND);
    Make("file");
    EXPECT_EQ(QVDirRemove(m_folder.Text(u"file").c_str()), E_FAIL);
    EXPECT_EQ(QVDirCreate(m_folder.Text(u"file").c_str(), 0), QV_E_ALREADY_EXISTS);
}

TEST_F(Directory, PatternsMatchLikeNames)
{
    const struct
    {
        std::u16string pattern, name;
        bool matches;
    } rows[] = {
        {u"*", u"", true},         {u"*.txt", u"A.TXT", true}, {u"a*b*c", u"aXbXbc", true},
        {u"a*b*c", u"aXc", false}, {u"?", u"", false},         {u"?\u00C4", u"x\u00E4", false},
        {u"", u"x", false},        {u"a**", u"a", true},       {u"a?", u"a", false},
    };
    for (const auto& row : rows) {
        qv::platform::FindPattern pattern;
        pattern.Set(row.pattern);
        EXPECT_EQ(pattern.Matches(row.name), row.matches) << &row - rows;
    }
}

qv::platform::FILETIME TimeAt(std::uint64_t steps)
{
    return {static_cast<std::uint32_t>(steps), static_cast<std::uint32_t>(steps >> 32)};
}

std::int32_t PosixTimeByCalendar(std::uint64_t steps)
{
    QVTimeZone zone;
    QVTimeGetZone(&zone);
    const auto local = TimeAt(steps - static_cast<std::uint64_t>(zone.biasSeconds) * 10'000'000);
    qv::platform::SYSTEMTIME shown;
    std::int32_t seconds = 0;
    if (FileTimeToSystemTime(&local, &shown) != 0) {
        QVTimeToPosix(reinterpret_cast<const QVTime*>(&shown), &seconds);
    }
    return seconds;
}

// The remembered way gives what the long way gives.
TEST_F(Directory, TimesAreThoseOfTheCalendar)
{
    std::mt19937_64 random(7);
    for (const char* zone : {"UTC", "America/New_York", "Australia/Lord_Howe", "Europe/Dublin",
                             "Asia/Kolkata", "Europe/Moscow", "Africa/Casablanca"}) {
        setenv("TZ", zone, 1);
        qv::core::PosixTimes times;
        for (int round = 0; round < 1500; ++round) {
            times.Refresh();
            // From 1965 to 2042, and the days of a change.
            const std::uint64_t second = round % 2 == 0 ? 11'486'000'000 + random() % 2'430'000'000
                                                        : 13'436'850'000 + random() % 200'000;
            const std::uint64_t steps = second * 10'000'000 + random() % 10'000'000;
            EXPECT_EQ(times.Of(TimeAt(steps)), PosixTimeByCalendar(steps)) << zone << ' ' << steps;
        }
        const timespec shown[] = {{1'700'000'001, 999'999'999}, {1'720'000'000, 0}};
        utimensat(AT_FDCWD, Make("file").c_str(), shown, 0);
        const QVDirEntry entry = Scan().at(u"file");
        EXPECT_NEAR(entry.m_accessTime, 1'700'000'001, 3600) << zone;
        EXPECT_NEAR(entry.m_writeTime, 1'720'000'000, 3600) << zone;
        EXPECT_GT(entry.m_creationTime, 1'700'000'000);
    }
    unsetenv("TZ");
    const timespec past[] = {{-1'000'000, 0}, {-1, 0}};
    utimensat(AT_FDCWD, Make("file").c_str(), past, 0);
    EXPECT_EQ(Scan().at(u"file").m_accessTime, -1);
    const struct
    {
        std::uint64_t steps;
        std::int32_t time;
    } rows[] = {{0, -1},
                {~std::uint64_t{0}, 0},
                {std::uint64_t{1} << 63, 0},
                {(std::uint64_t{1} << 63) - 1, -1},
                {116444736000000000, 0},
                {137919455999999999, 0x7FFFD27F},
                {137919456000000000, -1}};
    setenv("TZ", "UTC", 1);
    qv::core::PosixTimes times;
    for (const auto& row : rows) {
        EXPECT_EQ(times.Of(TimeAt(row.steps)), row.time) << row.steps;
    }
    unsetenv("TZ");
}

TEST_F(Directory, FailuresAreResultsAndLeaveNothingOpen)
{
    Make("file");
    const std::ptrdiff_t descriptors = CountDescriptors();
    const std::u16string path = m_folder.Text();
    const struct
    {
        const char* call;
        int error;
        QVRESULT open, third, then; // "." and ".." are not the kernel's
    } rows[] = {
        {"open", EACCES, E_ACCESSDENIED, S_OK, S_OK}, {"open", EMFILE, E_FAIL, S_OK, S_OK},
        {"open", ENOMEM, E_OUTOFMEMORY, S_OK, S_OK},  {"getdents", EIO, S_OK, E_FAIL, S_OK},
        {"getdents", ENOENT, S_OK, E_FAIL, E_FAIL},   {"statx", EACCES, S_OK, S_OK, E_FAIL},
    };
    for (const auto& row : rows) {
        QVDir folder = nullptr;
        g_errno = row.error;
        g_failing = row.call;
        EXPECT_EQ(QVDirOpen(path.c_str(), &folder), row.open) << row.call;
        EXPECT_EQ(folder == QV_DIR_NONE, row.open < 0);
        QVDirEntry entry = {};
        if (row.open >= 0) {
            QVDirRead(folder, &entry, 0);
            QVDirRead(folder, &entry, 0);
            EXPECT_EQ(QVDirRead(folder, &entry, 0), row.third) << row.call;
            g_failing = "";
            EXPECT_EQ(QVDirRead(folder, &entry, 0), row.then) << "an end stays one";
            QVDirClose(folder);
        }
        g_failing = "";
        EXPECT_EQ(CountDescriptors(), descriptors);
    }
    long live = 0;
    QVRESULT result = S_OK;
    SweepAllocations(
        [&] {
            live = LiveBlocks();
            QVDir folder = nullptr;
            QVDirEntry entry;
            result = QVDirOpen(path.c_str(), &folder);
            if (result >= 0) {
                result = QVDirRead(folder, &entry, 0);
                QVDirClose(folder);
            }
        },
        [&](long, bool failed) {
            EXPECT_EQ(result, failed ? E_OUTOFMEMORY : S_OK);
            EXPECT_EQ(LiveBlocks(), live);
            EXPECT_EQ(CountDescriptors(), descriptors);
        });
}

// Entries come and go meanwhile; those that stay are seen, once.
TEST_F(Directory, AHundredThousandEntriesTakeNoMoreMemory)
{
    const OwnFolder memory("/dev/shm");
    constexpr int kEntries = 100'000;
    const int folder = open(memory.Bytes().c_str(), O_RDONLY | O_DIRECTORY);
    for (int i = 0; i < kEntries; ++i) {
        close(openat(folder, std::to_string(i).c_str(), O_CREAT | O_WRONLY, 0644));
    }
    QVDir dir = nullptr;
    QVDirEntry entry;
    ASSERT_EQ(QVDirOpen(memory.Text().c_str(), &dir), S_OK);
    ASSERT_EQ(QVDirRead(dir, &entry, 0), S_OK);
    const long live = LiveBlocks();
    int count = 1;
    for (; QVDirRead(dir, &entry, 0) == S_OK; ++count) {
        if (count % 1000 == 0) {
            unlinkat(folder, std::to_string(count).c_str(), 0);
        }
    }
    EXPECT_EQ(LiveBlocks(), live);
    EXPECT_GE(count, kEntries + 2 - kEntries / 1000);
    EXPECT_LE(count, kEntries + 2);
    QVDirClose(dir);
    close(folder);
}

} // namespace
