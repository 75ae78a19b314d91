// Names and failures of the loader, with real files.
#include "platform/loader.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/error.h"
#include "platform/path_text.h"
#include "platform/system_time.h"

using namespace qv::platform;
namespace fs = std::filesystem;

namespace
{

class LoaderTest : public testing::Test
{
protected:
    void SetUp() override
    {
        fs::remove_all(m_folder);
        fs::create_directories(m_folder);
        m_before = fs::current_path();
        fs::current_path(m_folder);
    }
    void TearDown() override { fs::current_path(m_before); }

    static void CopyLibrary(const fs::path& name) { fs::copy_file(QV_TEST_LIBRARY, name); }

    // 0 if the library could be loaded (it is freed again), else the error.
    static DWORD TryLoad(const std::u16string& path)
    {
        SetLastError(0);
        errno = 77;
        const HMODULE module = LoadLibraryW(path.c_str());
        EXPECT_EQ(errno, 77);
        if (module == nullptr) {
            return GetLastError();
        }
        EXPECT_EQ(FreeLibrary(module), kTrue);
        return 0;
    }

    const fs::path m_folder = QV_TEST_FOLDER;
    fs::path m_before;
};

TEST_F(LoaderTest, FindsALibraryUnderItsOtherNames)
{
    fs::create_directories("sub");
    CopyLibrary("here.so");
    CopyLibrary("sub/plain.so");
    CopyLibrary("sub/libprefixed.so");
    CopyLibrary("sub/real.dll");
    CopyLibrary(u8"sub/\u00FCml\u00E4ut.so");
    CopyLibrary("sub/byte\xFF.so");
    const std::u16string folder = m_folder.u16string();
    const struct
    {
        std::u16string path;
        DWORD error;
    } rows[] = {
        {u"libm.so.6", 0}, // by the system's search
        {u"here.so", 0},   // then here
        {u"here.dll", 0},
        {u"HERE.dll", ERROR_MOD_NOT_FOUND},
        {u"here.DLL", 0},
        {u"sub/plain.so", 0},
        {u"sub\\plain.so", 0},
        {folder + u"\\sub/plain.dll", 0},
        {u"sub/real.dll", 0},
        {u"sub/prefixed.dll", 0},
        {u"sub/prefixed.so", ERROR_MOD_NOT_FOUND},
        {u"sub/\u00FCml\u00E4ut.so", 0},
        {std::u16string(u"sub/byte") + char16_t(0xDCFF) + u".so", 0},
        {u"plain.so", ERROR_MOD_NOT_FOUND},
        {u"here", ERROR_MOD_NOT_FOUND},
        {u".dll", ERROR_MOD_NOT_FOUND},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(TryLoad(row.path), row.error) << PathToBytes(row.path);
    }
}

TEST_F(LoaderTest, TellsApartWhyALibraryCannotBeLoaded)
{
    std::ofstream("text.so") << "This is no library, whatever its name says, and it goes on a bit.";
    std::ofstream("empty.so").close();
    fs::create_directories("folder.so");
    ASSERT_EQ(mkfifo("pipe.so", 0600), 0);
    {
        std::ifstream whole(QV_TEST_LIBRARY, std::ios::binary);
        std::string head(sizeof(void*) * 16, '\0');
        whole.read(head.data(), static_cast<std::streamsize>(head.size()));
        std::ofstream("cut.so", std::ios::binary) << head;
        head[4] = head[4] == 1 ? 2 : 1; // the other word size
        std::ofstream("class.so", std::ios::binary) << head;
    }
    const struct
    {
        const char16_t* path;
        DWORD error;
    } rows[] = {
        {u"", ERROR_INVALID_PARAMETER},
        {nullptr, ERROR_INVALID_PARAMETER},
        {u"./missing.so", ERROR_MOD_NOT_FOUND},
        {u"missing/x.so", ERROR_MOD_NOT_FOUND},
        {u"text.so/x.so", ERROR_MOD_NOT_FOUND},
        {u"./text.so", ERROR_BAD_EXE_FORMAT},
        {u"text.so", ERROR_BAD_EXE_FORMAT},
        {u"./empty.so", ERROR_BAD_EXE_FORMAT},
        {u"./folder.so", ERROR_BAD_EXE_FORMAT},
        {u"./pipe.so", ERROR_BAD_EXE_FORMAT}, // and does not wait for a writer
        {u"./class.so", ERROR_BAD_EXE_FORMAT},
        {u"./cut.so", ERROR_MOD_NOT_FOUND},
    };
    for (const auto& row : rows) {
        SetLastError(0);
        EXPECT_EQ(LoadLibraryW(row.path), nullptr);
        EXPECT_EQ(GetLastError(), row.error)
            << (row.path != nullptr ? PathToBytes(row.path) : "null");
    }
}

TEST_F(LoaderTest, EachLoadIsUndoneByOneFree)
{
    CopyLibrary("counted.so");
    const HMODULE first = LoadLibraryW(u"counted.so");
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(LoadLibraryA("./counted.so"), first);
    EXPECT_EQ(FreeLibrary(first), kTrue);
    EXPECT_NE(GetProcAddress(first, "TestAnswer"), nullptr);
    EXPECT_EQ(FreeLibrary(first), kTrue);
    EXPECT_EQ(FreeLibrary(first), kFalse);
    EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
    EXPECT_EQ(GetProcAddress(first, "TestAnswer"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    int local = 0;
    for (void* const dead : {static_cast<void*>(nullptr), static_cast<void*>(&local)}) {
        EXPECT_EQ(FreeLibrary(static_cast<HMODULE>(dead)), kFalse);
        EXPECT_EQ(GetProcAddress(static_cast<HMODULE>(dead), "x"), nullptr);
        EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    }
}

TEST_F(LoaderTest, BuiltInModulesHaveTheirFunctionsAndNoOthers)
{
    const struct
    {
        const char* module;
        const char* function;
        bool found;
    } rows[] = {
        {"kernel32.dll", "GetSystemTimePreciseAsFileTime", true},
        {"KERNEL32.DLL", "GetSystemTimeAsFileTime", true},
        {"AdvApi32.dll", "RegDeleteKeyExW", true},
        {"kernel32.dll", "RegDeleteKeyExW", false},
        {"advapi32.dll", "", false},
        {"advapi32.dll", "printf", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.function);
        const HMODULE module = LoadLibraryA(row.module);
        ASSERT_NE(module, nullptr);
        SetLastError(0);
        EXPECT_EQ(GetProcAddress(module, row.function) != nullptr, row.found);
        EXPECT_EQ(GetLastError(), row.found ? 0 : ERROR_PROC_NOT_FOUND);
        EXPECT_EQ(FreeLibrary(module), kTrue);
        EXPECT_EQ(FreeLibrary(module), kTrue); // as often as one likes
    }
    EXPECT_EQ(GetModuleHandleW(u"KERNEL32.DLL"), LoadLibraryA("kernel32.dll"));
    EXPECT_EQ(GetModuleHandleW(u"libm.so.6"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
}

// 2001-09-09 01:46:40 UTC is a billion seconds after 1970; file times count from 1601.
TEST(SystemTime, CountsHundredsOfNanosecondsSince1601)
{
    const auto unixTime = [] {
        FILETIME time = {};
        GetSystemTimePreciseAsFileTime(&time);
        const auto steps =
            static_cast<std::uint64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
        return static_cast<std::int64_t>(steps / 10000000) - std::int64_t{11644473600};
    };
    const std::int64_t before = std::time(nullptr);
    const std::int64_t now = unixTime();
    const std::int64_t after = std::time(nullptr);
    EXPECT_LE(before - 1, now); // time() may lag behind by a tick
    EXPECT_LE(now, after + 1);
}

} // namespace
