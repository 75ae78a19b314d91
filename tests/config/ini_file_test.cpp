// The ini file: its text, its cycle of look, load and save, and what failures leave of it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <qvcore6/str.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "config/ini_file.h"
#include "config/ini_iterators.h"
#include "config/ini_support.h"
#include "frame/exception.h"
#include "platform/error.h"
#include "platform/text_file.h"
#include "support/alloc_faults.h"
#include "support/child_process.h"
#include "support/own_folder.h"
#include "text/ansi_string.h"

using namespace qv::test;
using qv::core::IniLock;
using namespace std::string_literals;
namespace fs = std::filesystem;

namespace
{

// Bytes that writes get through; no limit below 0.
long g_room = -1;
// The call of the platform, counted from 1, that fails.
int g_failing = 0;

bool FailsNow()
{
    return g_failing != 0 && --g_failing == 0;
}

} // namespace

extern "C"
{
    using namespace qv::platform;
    decltype(_sopen) __real__sopen;
    decltype(_read) __real__read;
    decltype(_write) __real__write;
    decltype(_lseeki64) __real__lseeki64;
    decltype(_chsize_s) __real__chsize_s;
    decltype(_stat64i32) __real__stat64i32;
    decltype(_fstat64i32) __real__fstat64i32;
    decltype(WaitForSingleObject) __real_WaitForSingleObject;

    int __wrap__sopen(const char* path, int flags, int share)
    {
        return FailsNow() ? -1 : __real__sopen(path, flags, share);
    }
    int __wrap__read(int file, void* bytes, unsigned count)
    {
        return FailsNow() ? -1 : __real__read(file, bytes, count);
    }
    std::int64_t __wrap__lseeki64(int file, std::int64_t offset, int origin)
    {
        return FailsNow() ? -1 : __real__lseeki64(file, offset, origin);
    }
    int __wrap__chsize_s(int file, std::int64_t size)
    {
        return FailsNow() ? EIO : __real__chsize_s(file, size);
    }
    int __wrap__stat64i32(const char* path, FileStatus* status)
    {
        return FailsNow() ? -1 : __real__stat64i32(path, status);
    }
    int __wrap__fstat64i32(int file, FileStatus* status)
    {
        return FailsNow() ? -1 : __real__fstat64i32(file, status);
    }
    DWORD __wrap_WaitForSingleObject(HANDLE object, DWORD milliseconds)
    {
        if (FailsNow()) {
            SetLastError(ERROR_INVALID_HANDLE);
            return WAIT_FAILED;
        }
        return __real_WaitForSingleObject(object, milliseconds);
    }

    int __wrap__write(int file, const void* bytes, unsigned count)
    {
        if (g_room == 0 || FailsNow()) {
            return -1;
        }
        const auto most = g_room > 0 ? std::min<long>(g_room, count) : static_cast<long>(count);
        g_room -= g_room > 0 ? most : 0;
        return __real__write(file, bytes, static_cast<unsigned>(most));
    }
}

namespace
{

class IniFileTest : public testing::Test
{
protected:
    // Older than what the library writes from now on.
    void Write(const std::string& text, time_t modified = 1'000'000'000)
    {
        std::ofstream(m_path, std::ios::binary) << text;
        const timespec times[2] = {{modified, 0}, {modified, 0}};
        utimensat(AT_FDCWD, m_path.c_str(), times, 0);
    }
    std::string Saved(const std::string& text)
    {
        Write(text);
        IniFile file(m_name.c_str());
        EXPECT_EQ(0, file.Save());
        return ReadFile(m_path);
    }
    std::u16string Value(IniFile& file, const char16_t* section, const char16_t* key)
    {
        char16_t value[64] = u"none";
        std::size_t length = 0;
        file.GetValue(section, key, value, std::size(value), &length);
        return value;
    }

    const OwnFolder m_folder;
    const std::string m_path = m_folder.Bytes("settings.ini");
    const std::u16string m_name = m_folder.Text(u"settings.ini");
    const std::ptrdiff_t m_descriptors = CountDescriptors();
};

TEST_F(IniFileTest, ReadsAndWritesTheFormat)
{
    const std::string example = "; site settings\nOwner=nobody\n[Zeta]\nb = 2\nA=x = y\na=last\n\n"
                                "; about alpha\n[alpha] extra\nk=\n";
    const std::string x502(502, 'x');
    const struct
    {
        std::string text;
        std::string saved;
    } rows[] = {
        {"", ""},
        {"\n\nno section\n", ""},
        {example, "[alpha]\nk=\n\n[Zeta]\nA=last\nb=2\n\n"},
        {"\xEF\xBB\xBF[a]\nk=v\n\n[b]\nk=v", "[b]\nk=v\n\n"},
        {"[]\n=v\n\n[e]\n\n", "[]\n=v\n\n[e]\n\n"},
        {"[ a]b ]c\n k=v\n", "[ a]b ]\n\n"}, // a blank ends the section
        {"[a]\nk =   v  \nl=\tv\t\nm=   \n   =v\n", "[a]\nk=v\nl=\tv\t\nm=   \n\n"},
        {"[a]\n \t=  =\n[b]=c\n#=d\n\n", "[a]\n\n[b]\n#=d\n\n"},
        {"[a]\nk=v\n[b]=c\n#=d\n\n", "[a]\n#=d\n[b]=c\nk=v\n\n"},
        {"[a]\n1=1\n2=2\n\n[b]\n\n[A]\n3=3\n", "[a]\n3=3\n\n[b]\n\n"}, // the last one counts
        {"[b]\nz=1\ny=2\nZ=3\n\n[a]\n", "[a]\n\n[b]\ny=2\nz=3\n\n"},
        {"[a\\b]\n\n[a!]\n\n[a]\n\n[ab]\n", "[a]\n\n[a!]\n\n[a\\b]\n\n[ab]\n\n"},
        // Line ends of other systems; one that belongs to a value stays in it.
        {"[a]\r\nk=v\r\n\r\n[b]\r\nl=\rw\r\r\n", "[a]\nk=v\n\n[b]\nl=\rw\r\r\n\n"},
        {"[a]\nk=v\0w\n\0l=\n[b]\nm=n\n"s, "[a]\nk=v\n\n[b]\nm=n\n\n"},
        // A line has 510 bytes with its end; the rest of a longer one is a line.
        {"[a]\n1234567=" + x502.substr(1) + "\n\n", "[a]\n1234567=" + x502.substr(1) + "\n\n"},
        {"[a]\r\n1234567=" + x502.substr(1) + "\r\n\r\n",
         "[a]\n1234567=" + x502.substr(1) + "\n\n"},
        {"[a]\n1234567=" + x502 + "\n[b]\nk=v\n", "[a]\n1234567=" + x502 + "\n\n[b]\nk=v\n\n"},
        // What a load ends at stays in the file with all that follows.
        {"[c]\nk=v\n\n;\n[b\nx\n[a]\nk=v\n", "[c]\nk=v\n\n[b\nx\n[a]\nk=v\n"},
        {"[b]\nk=v\n\n;\n[a]\nk=v\nbad\n\n[c]\r\n", "[b]\nk=v\n\n[a]\nk=v\nbad\n\n[c]\r\n"},
        {"[a]\n1234567=" + x502 + "x\n\n[b]\n", "[a]\n1234567=" + x502 + "x\n\n[b]\n"},
        {"[" + x502 + "12345678]\n\n[b]\n", "[" + x502 + "12345678]\n\n[b]\n"},
        {"[\xC3\x84]\n\xC3\xA4=\xE2\x82\xAC\n\xC3\x84=\xF0\x9F\x99\x82\xFF\n",
         "[\xC3\x84]\n\xC3\xA4=\xF0\x9F\x99\x82\xEF\xBF\xBD\n\n"},
    };
    for (const auto& row : rows) {
        const std::string saved = Saved(row.text);
        EXPECT_EQ(row.saved, saved) << row.text;
        EXPECT_EQ(saved, Saved(saved)) << row.text;
    }
}

TEST_F(IniFileTest, SetsAndGetsValues)
{
    IniFile file(m_name.c_str());
    EXPECT_FALSE(fs::exists(m_path));
    EXPECT_EQ(0, file.SetValue(u"Net\\Ports", u"Main", u"42", false));
    EXPECT_EQ(-1, file.SetValue(u"NET\\ports", u"mAIN", u"43", false));
    EXPECT_EQ("[Net\\Ports]\nMain=42\n\n", ReadFile(m_path));
    EXPECT_EQ(0, file.SetValue(u"net\\ports", u"main", u"4343", true));
    EXPECT_EQ(0, file.SetValue(u"Net", u"", u"", true));
    EXPECT_EQ(0, file.SetValue(u"zone", u"b", u"1", true));
    EXPECT_EQ(0, file.SetValue(u"zone", u"A", u"\xE9\u20AC", true));
    EXPECT_EQ(0, file.SetValue(u"Net\\Ports", u"Main", u"7", true));
    EXPECT_EQ("[Net]\n=\n\n[Net\\Ports]\nMain=7\n\n[zone]\nA=\xC3\xA9\xE2\x82\xAC\nb=1\n\n",
              ReadFile(m_path));
    char16_t value[8] = u"before";
    std::size_t length = 0;
    EXPECT_EQ(QV_E_FILE_NOT_FOUND, file.GetValue(u"Net", u"Main", value, 8, &length));
    EXPECT_EQ(QV_E_FILE_NOT_FOUND, file.GetValue(u"none", u"Main", value, 8, &length));
    EXPECT_EQ(QV_E_BUFFER_TOO_SMALL, file.GetValue(u"zone", u"a", value, 2, &length));
    EXPECT_EQ(2u, length);
    EXPECT_EQ(std::u16string(u"before"), value);
    EXPECT_EQ(S_OK, file.GetValue(u"ZONE", u"a", value, 3, &length));
    EXPECT_EQ(std::u16string(u"\xE9\u20AC"), value);
    // Replaced texts do not pile up.
    const std::u16string large(1000, u'x');
    const long pages = ResidentPages();
    for (int i = 0; i < 2000; ++i) {
        file.SetValue(u"zone", u"b", large.c_str(), true);
    }
    EXPECT_LT(ResidentPages(), pages + 500);
    EXPECT_EQ(u"7", Value(file, u"net\\PORTS", u"main"));
}

TEST_F(IniFileTest, EnumeratesSnapshots)
{
    Write("[A]\nz=1\nY=2\n\n[A\\B]\n\n[A\\B\\C]\n\n[A\\D\\E]\n\n[a\\F]\n\n[A\\b\\x]\n\n[A!]\n\n["
          "A\\]\n\n"
          "[deep\\er\\est]\nk=v\n");
    IniFile file(m_name.c_str());
    const auto all = [](IniFileIteratorBase&& iterator) {
        std::u16string names;
        while (iterator.HasNext()) {
            names += iterator.Next() + u'|';
        }
        EXPECT_THROW(iterator.Next(), EQVCoreException);
        return names;
    };
    const struct
    {
        const char16_t* name;
        std::u16string keys;
        std::u16string sub;
    } rows[] = {{u"A", u"Y|z|", u"|B|D|b|"},
                {u"a", u"Y|z|", u"F|"},
                {u"deep", u"", u"er|"},
                {u"A\\D", u"", u"E|"},
                {u"deep\\er\\est", u"k|", u""}};
    for (const auto& row : rows) {
        EXPECT_EQ(row.keys, all(IniFileKeyIterator(file, row.name)));
        EXPECT_EQ(row.sub, all(IniFileSetIterator(file, row.name)));
    }
    EXPECT_EQ(u"", all(IniFileSetIterator(file, u"none")));
    try {
        IniFileKeyIterator none(file, u"none");
        ADD_FAILURE();
    } catch (const EQVCoreException& failure) {
        EXPECT_EQ(QV_E_FILE_NOT_FOUND, failure.Result());
    }
    IniFileKeyIterator snapshot(file, u"A");
    file.SetValue(u"A", u"new", u"", true);
    EXPECT_EQ(u"A", snapshot.GetName());
    EXPECT_EQ(u"Y|z|", all(std::move(snapshot)));
    const std::vector<std::u16string> under = {u"A",       u"A\\",     u"A\\B",
                                               u"A\\B\\C", u"A\\b\\x", u"A\\D\\E"};
    EXPECT_EQ(under, file.GetSectionsUnder(u"A"));
    EXPECT_EQ(9u, file.GetSections().size());
}

TEST_F(IniFileTest, SeesChangesOfLaterSecondsOnly)
{
    Write("[a]\nk=1\n\n", 1'000'000'000);
    IniFile file(m_name.c_str());
    const auto expect = [&](const char16_t* value) { EXPECT_EQ(value, Value(file, u"a", u"k")); };
    expect(u"1");
    Write("[a]\nk=2\n\n", 1'000'000'000);
    expect(u"1"); // the second is the resolution
    Write("[a]\nk=3\n\n", 1'000'000'001);
    expect(u"3");
    Write("[a]\nk=4\n\n", 999'999'999);
    expect(u"3"); // but the older time is what counts from now on
    Write("[a]\nk=5\n\n", 1'000'000'000);
    expect(u"5");
    fs::remove(m_path);
    expect(u"5");
    EXPECT_EQ(0, file.SetValue(u"a", u"l", u"6", true)); // brings it back
    EXPECT_EQ("[a]\nk=5\nl=6\n\n", ReadFile(m_path));
    Write("[a]\nk=7\n\n", time(nullptr) + 5);
    expect(u"7");
    // What another one saves in the second that was seen last is lost.
    Write("[a]\nk=7\nl=8\n\n", time(nullptr) + 5);
    file.SetValue(u"a", u"k", u"9", true);
    EXPECT_EQ("[a]\nk=9\n\n", ReadFile(m_path));
}

// What is there and cannot be read is never written over.
TEST_F(IniFileTest, KeepsAFileThatItCannotReadOrSave)
{
    Write("[a]\nk=1\n\n");
    const auto expect = [&](IniFile& file, bool isSaved) {
        EXPECT_EQ(0, file.SetValue(u"b", u"l", u"2", true));
        EXPECT_EQ(isSaved, file.IsSaved());
        EXPECT_EQ(u"2", Value(file, u"b", u"l"));
    };
    Child other([&] { // whom no root's right helps
        chmod(m_path.c_str(), 0);
        chmod(m_folder.Bytes().c_str(), 0777);
        if (getuid() == 0 && (chown(m_path.c_str(), 1000, 1000) != 0 || setuid(1000) != 0)) {
            return false;
        }
        IniFile unreadable(m_name.c_str());
        chmod(m_path.c_str(), 0200);
        expect(unreadable, false);
        chmod(m_path.c_str(), 0600);
        EXPECT_EQ(u"1", Value(unreadable, u"a", u"k")); // when it can be read again
        chmod(m_path.c_str(), 0400);
        expect(unreadable, false);
        chmod(m_path.c_str(), 0600);
        expect(unreadable, true);
        return !testing::Test::HasFailure();
    });
    EXPECT_TRUE(other.Succeeded());
    const std::string before = "[a]\nk=1\n\n[b]\nl=2\n\n";
    EXPECT_EQ(before, ReadFile(m_path));
    // A disk that is full at any point of a save that makes the file longer.
    for (const long room : {0l, 5l, 1000l}) {
        IniFile file(m_name.c_str());
        g_room = room;
        file.SetValue(u"c", u"m", std::u16string(2000, u'x').c_str(), true);
        EXPECT_FALSE(file.IsSaved());
        EXPECT_EQ(before, ReadFile(m_path));
        g_room = -1;
        file.SaveAgain();
        EXPECT_TRUE(file.IsSaved());
        EXPECT_EQ(before.size() + 2008, fs::file_size(m_path));
        Write(before);
    }
    fs::remove(m_path);
    fs::create_directory(m_path);
    IniFile folder(m_name.c_str());
    expect(folder, false);
    fs::remove(m_path);
    expect(folder, true); // nothing is in the way any more
    EXPECT_EQ("[b]\nl=2\n\n", ReadFile(m_path));
    fs::remove(m_path);
    mkfifo(m_path.c_str(), 0600);
    IniFile pipe(m_name.c_str());
    expect(pipe, false);
    fs::remove(m_path);
    IniFile nameless(nullptr);
    EXPECT_EQ(1, nameless.Save());
    IniFile nowhere(m_folder.Text(u"no/where").c_str());
    expect(nowhere, false);
    EXPECT_EQ(m_descriptors, CountDescriptors());
}

TEST_F(IniFileTest, HoldsItsLockThroughFailures)
{
    Write("[a]\nk=1\n\n[bad\n");
    const long blocks = LiveBlocks();
    const auto use = [&] {
        try {
            IniFile file(m_name.c_str());
            char16_t value[100] = {};
            std::size_t length = 0;
            file.SetValue(u"a", u"k", u"22", true);
            file.SetValue(u"a", std::u16string(200, u'k').c_str(), u"3", true);
            file.SetValue(u"b", u"k", u"\xE9", true);
            file.GetValue(u"a", u"k", value, 100, &length);
            IniFileSetIterator(file, u"a");
            IniFileKeyIterator(file, u"a");
        } catch (const std::bad_alloc&) {
        } catch (const EQVCoreException& failure) {
            EXPECT_EQ(E_OUTOFMEMORY, failure.Result());
        }
    };
    EXPECT_GT(SweepAllocations(use,
                               [&](long, bool) {
                                   EXPECT_EQ(blocks, LiveBlocks());
                                   EXPECT_EQ(m_descriptors, CountDescriptors());
                                   EXPECT_TRUE(IniSemaphore().Takes());
                                   const std::string text = ReadFile(m_path);
                                   EXPECT_EQ(0u, text.find("[a]\nk="));
                                   EXPECT_EQ("\n[bad\n", text.substr(text.size() - 6));
                               }),
              10);
}

// Also if the dead one's mutex has gone with him.
TEST_F(IniFileTest, GivesBackWhatADeadOneHeld)
{
    for (const bool isShared : {true, false}) {
        auto lock = isShared ? std::make_unique<IniLock>() : nullptr;
        auto& isHeld = MakeShared<std::atomic<bool>>();
        Child holder([&] {
            IniLock own;
            own.Acquire();
            isHeld = true;
            return pause() == 0;
        });
        ASSERT_TRUE(Becomes([&] { return isHeld.load(); }));
        IniSemaphore semaphore;
        holder.Kill();
        const auto maker = isShared ? nullptr : std::make_unique<IniLock>();
        lock = isShared ? std::move(lock) : std::make_unique<IniLock>();
        lock->Acquire();
        EXPECT_FALSE(semaphore.IsFree());
        lock->Release();
        EXPECT_TRUE(semaphore.Takes());
        EXPECT_FALSE(semaphore.IsFree()); // one unit, not two
    }
}

// Longer and shorter than what the file holds.
TEST_F(IniFileTest, IsTheOldFileOrTheNewOneAfterAFailingCall)
{
    for (const std::size_t length : {0u, 5000u}) {
        const std::string before = "[a]\nk=" + std::string(400, 'x') + "\n\n[bad";
        const std::string after = "[a]\nk=" + std::string(length, 'y') + "\n\n[bad";
        for (int n = 1; n < 100; ++n) {
            Write(before);
            g_failing = n;
            try {
                IniFile file(m_name.c_str());
                file.SetValue(u"a", u"k", std::u16string(length, u'y').c_str(), true);
                const std::string text = ReadFile(m_path);
                // One that cannot be cut has the rest of the old text behind the new one.
                EXPECT_TRUE(text == (file.IsSaved() ? after : before) || text.starts_with(after))
                    << n << text;
            } catch (const EQVCoreException& failure) {
                EXPECT_EQ(E_HANDLE, failure.Result());
                EXPECT_EQ(before, ReadFile(m_path));
            }
            const bool happened = g_failing == 0;
            g_failing = 0;
            EXPECT_EQ(m_descriptors, CountDescriptors());
            if (!happened) {
                EXPECT_EQ(after, ReadFile(m_path));
                break;
            }
        }
    }
}

TEST_F(IniFileTest, TakesLongLinesAndLargeFiles)
{
    const std::string line = "[a]\nk=" + std::string(1 << 20, 'x') + "\n\n[b]\nl=m\n\n";
    EXPECT_EQ(line, Saved(line));
    const int sections = ResidentPages() != 0 ? 200'000 : 2'000; // 100 MiB
    std::string text;
    for (int i = 1'000'000; i < 1'000'000 + sections; ++i) {
        text += "[" + std::to_string(i) + "]\nk=" + std::string(509, 'v') + "\n\n";
        text.erase(text.size() - 4, 2); // to a line of 510 bytes with its end
        text += "\n";
    }
    Write(text);
    IniFile file(m_name.c_str());
    EXPECT_EQ(static_cast<std::size_t>(sections), file.GetSections().size());
    EXPECT_FALSE(file.HasUnread());
}

// Run in several locales.
TEST_F(IniFileTest, ConvertsByTheAnsiCodePage)
{
    for (int byte = 0x80; byte < 0x100; ++byte) {
        const std::string name(2, static_cast<char>(byte));
        Write("[" + name + "]\n" + name + "=" + name + "\n\n");
        IniFile file(m_name.c_str());
        const std::u16string wide = QVAnsiToWString(name.c_str());
        EXPECT_EQ(std::vector<std::u16string>{wide}, file.GetSections());
        EXPECT_EQ(wide, Value(file, wide.c_str(), wide.c_str())) << byte;
        file.Save();
        const std::string narrow = QVWStringToAnsi(wide.c_str());
        EXPECT_EQ("[" + narrow + "]\n" + narrow + "=" + narrow + "\n\n", ReadFile(m_path));
    }
}

TEST_F(IniFileTest, LosesNothingOfManyWritersWhoAreKilled)
{
    constexpr int kWriters = 8;
    struct Told
    {
        std::atomic<int> acknowledged[kWriters];
        std::atomic<long> failures;
    };
    auto& told = MakeShared<Told>();
    // Who has just made its object has not seen the file in this second: it looks anew.
    const auto write = [&](int writer) {
        const std::u16string key(1, static_cast<char16_t>(u'a' + writer));
        for (;;) {
            const int next = told.acknowledged[writer] + 1;
            char16_t text[16] = {};
            QVLToStrW(next, text, 10);
            IniFile look(m_name.c_str());
            const std::u16string found = Value(look, u"s", key.c_str());
            const int before = found == u"none" ? 0 : QVStrToIW(found.c_str());
            told.failures += before != next - 1 && before != next;
            IniFile file(m_name.c_str());
            file.SetValue(u"s", key.c_str(), text, true);
            told.acknowledged[writer] = next;
        }
        return false;
    };
    std::vector<std::unique_ptr<Child>> writers;
    for (int i = 0; i < kWriters; ++i) {
        writers.push_back(std::make_unique<Child>([&] { return write(i); }));
    }
    std::minstd_rand random(1);
    long kills = 0;
    for (const auto end = StressEnd(); std::chrono::steady_clock::now() < end; ++kills) {
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 20'000));
        const int victim = static_cast<int>(random() % kWriters);
        writers[static_cast<std::size_t>(victim)].reset();
        writers[static_cast<std::size_t>(victim)] =
            std::make_unique<Child>([&] { return write(victim); });
    }
    writers.clear();
    EXPECT_EQ(0, told.failures);
    IniFile file(m_name.c_str());
    EXPECT_FALSE(file.HasUnread());
    for (int i = 0; i < kWriters; ++i) {
        const std::u16string key(1, static_cast<char16_t>(u'a' + i));
        const int value = QVStrToIW(Value(file, u"s", key.c_str()).c_str());
        EXPECT_GE(value, told.acknowledged[i]);
        EXPECT_LE(value, told.acknowledged[i] + 1);
    }
    RecordProperty("kills", std::to_string(kills));
}

} // namespace
