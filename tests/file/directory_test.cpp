// Folders: what a scan says of their entries, under all kinds of names, times and failures.
#include <gtest/gtest.h>
#include <qvcore6/directory.h>
#include <qvcore6/file.h>
#include <qvcore6/result.h>
#include <qvcore6/time.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <ctime>
#include <fstream>
#include <map>
#include <random>
#include <string>

#include "support/alloc_faults.h"
#include "support/own_folder.h"

using namespace qv::test;

namespace
{

using Entries = std::map<std::u16string, QVDirEntry>;

class Directory : public testing::Test
{
protected:
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

    OwnFolder m_folder{"/dev/shm"}; // where holes, many entries and strange times cost least
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
    ASSERT_EQ(chdir(m_folder.Bytes().c_str()), 0); // or the longest would be too long
    for (const auto& [name, entry] : entries) {
        QVHandle file = QV_HANDLE_NONE;
        EXPECT_EQ(QVFileOpen(name.c_str(), QV_FILE_READ, 0, &file),
                  name[0] == u'.' ? E_ACCESSDENIED : S_OK);
        QVFileClose(file);
    }
    ASSERT_EQ(chdir("/"), 0);
}

// A path that ends in a colon is a pattern, with a * behind it.
TEST_F(Directory, PathsAreTakenAsTheyAreMeant)
{
    Make("C:aXbXbc");
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
        {u"", S_OK, u"."},
        {u"\\/", S_OK, u"."},
        {u"c:", S_OK, u"C:aXbXbc"},
        {u"*:", S_OK, u"C:aXbXbc"},
        {u"?:", S_OK, u"C:aXbXbc"},
        {u"C:a*b*:", QV_E_FILE_NOT_FOUND, u""},
        {u"??:", QV_E_FILE_NOT_FOUND, u""},
        {u"missing", QV_E_FILE_NOT_FOUND, u""},
        {u"file", E_FAIL, u""},
        {u"file/below", QV_E_FILE_NOT_FOUND, u""},
        {std::u16string(5000, u'x'), E_FAIL, u""},
        {std::u16string(300, u'x') + u":", E_FAIL, u""},
    };
    for (const auto& row : rows) {
        QVDir folder = nullptr;
        EXPECT_EQ(QVDirOpen(row.path.c_str(), &folder), row.result) << &row - rows;
        EXPECT_EQ(folder == QV_DIR_NONE, row.result < 0);
        QVDirEntry entry = {};
        EXPECT_EQ(QVDirRead(folder, &entry, 0), row.result < 0 ? E_HANDLE : S_OK);
        EXPECT_EQ(entry.m_name, row.first);
        EXPECT_EQ(QVDirClose(folder), S_OK) << "also of none";
    }
    ASSERT_EQ(chdir("/"), 0);
}

TEST_F(Directory, ComeAndGo)
{
    mkdir(m_folder.Bytes("closed").c_str(), 0555);
    Make("file");
    const auto make = [](const QVWChar* path) { return QVDirCreate(path, 0); };
    const struct
    {
        QVRESULT (*act)(const QVWChar* path);
        std::u16string name;
        QVRESULT result;
    } rows[] = {
        {make, u"new/below", QV_E_FILE_NOT_FOUND},
        {make, u"new", S_OK},
        {make, u"new\\", QV_E_ALREADY_EXISTS},
        {make, u"new/below", S_OK},
        {make, u"file", QV_E_ALREADY_EXISTS},
        {QVDirRemove, u"new", E_FAIL},
        {QVDirRemove, u"new/below/.", E_ACCESSDENIED}, // in use by its name
        {QVDirRemove, u"new/below", S_OK},
        {QVDirRemove, u"new", S_OK},
        {QVDirRemove, u"new", QV_E_FILE_NOT_FOUND},
        {QVDirRemove, u"closed", E_ACCESSDENIED},
        {QVDirRemove, u"file", E_FAIL},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.act(m_folder.Text(row.name).c_str()), row.result) << &row - rows;
    }
    QVDir gone = nullptr;
    QVDirEntry entry;
    ASSERT_EQ(QVDirOpen(m_folder.Text(u"closed").c_str(), &gone), S_OK);
    EXPECT_EQ(QVDirRead(gone, &entry, 0), S_OK);
    rmdir(m_folder.Bytes("closed").c_str());
    EXPECT_EQ(QVDirRead(gone, &entry, 0), S_OK) << "..";
    EXPECT_EQ(QVDirRead(gone, &entry, 0), E_FAIL);
    QVDirClose(gone);
}

// Step by step, with the zone asked for at each.
std::int32_t ByCalendar(std::int64_t second)
{
    QVTimeZone zone;
    QVTimeGetZone(&zone);
    const std::time_t local = second - zone.biasSeconds;
    QVTime shown;
    QVTimeFromTM(gmtime(&local), &shown);
    std::int32_t seconds = 0;
    QVTimeToPosix(&shown, &seconds);
    return seconds;
}

TEST_F(Directory, TimesAreThoseOfTheCalendar)
{
    const auto put = [&](int name, std::int64_t access, std::int64_t write) {
        const timespec shown[] = {{access, 999'999'999}, {write, 0}};
        utimensat(AT_FDCWD, Make(std::to_string(name)).c_str(), shown, 0);
    };
    std::mt19937_64 random(7);
    for (const char* zone : {"America/New_York", "Australia/Lord_Howe", "Europe/Dublin",
                             "Asia/Kolkata", "Europe/Moscow", "Africa/Casablanca", "UTC"}) {
        setenv("TZ", zone, 1);
        std::int64_t expected[1000];
        for (int i = 0; i < 1000; ++i) {
            // From 1965 to 2042, and around the change of several zones.
            expected[i] = i % 2 == 0
                              ? static_cast<std::int64_t>(random() % 2'430'000'000) - 158'000'000
                              : 1'414'200'000 + static_cast<int>(random() % 400'000);
            put(i, expected[i], 1'720'000'000);
        }
        for (const auto& [name, entry] : Scan()) {
            if (name[0] != u'.') {
                const int i = std::stoi(std::string(name.begin(), name.end()));
                EXPECT_EQ(entry.m_accessTime, ByCalendar(expected[i])) << zone << expected[i];
                EXPECT_NEAR(entry.m_writeTime, 1'720'000'000, 3600);
                EXPECT_GT(entry.m_creationTime, 1'720'000'000);
            }
        }
    }
    const std::pair<std::int64_t, std::int32_t> rows[] = {
        {-1, -1},
        {0, 0},
        {0x7FFFD27F, 0x7FFFD27F},
        {0x7FFFD280, -1},
        {-12'000'000'000, 0},
        {int64_t{1} << 40, 0}}; // before and after all that is counted
    for (const auto& [second, time] : rows) {
        put(0, second, second);
        EXPECT_EQ(Scan().at(u"0").m_writeTime, time) << second;
    }
    unsetenv("TZ");
}

// Entries come and go meanwhile; those that stay are seen, once.
TEST_F(Directory, AHundredThousandEntriesTakeNoMoreMemory)
{
    constexpr int kEntries = 100'000;
    const int folder = open(m_folder.Bytes().c_str(), O_RDONLY | O_DIRECTORY);
    for (int i = 0; i < kEntries; ++i) {
        close(openat(folder, std::to_string(i).c_str(), O_CREAT | O_WRONLY, 0644));
    }
    QVDir dir = nullptr;
    QVDirEntry entry;
    ASSERT_EQ(QVDirOpen(m_folder.Text().c_str(), &dir), S_OK);
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
