// Names and failures of the loader, with real files; the functions of its built-in modules.
#include "platform/loader.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/error.h"
#include "platform/path_text.h"
#include "platform/registry_store.h"
#include "platform/system_time.h"

using namespace qv::platform;
namespace fs = std::filesystem;

namespace
{

TEST(Loader, FindsALibraryOrTellsWhyNot)
{
    fs::remove_all(QV_TEST_FOLDER);
    fs::create_directories(QV_TEST_FOLDER "/sub");
    fs::current_path(QV_TEST_FOLDER);
    for (const char* const name : {"here.so", "sub/plain.so", "sub/libprefixed.so", "sub/real.dll",
                                   "sub/\xC3\xBCml.so", "sub/byte\xFF.so"}) {
        fs::copy_file(QV_TEST_LIBRARY, name);
    }
    std::ofstream("text.so") << "This is no library, whatever its name says, and it goes on a bit.";
    std::ofstream("empty.so").close();
    fs::create_directories("folder.so");
    ASSERT_EQ(mkfifo("pipe.so", 0600), 0);
    std::string head(128, '\0');
    std::ifstream(QV_TEST_LIBRARY, std::ios::binary).read(head.data(), 128);
    std::ofstream("cut.so", std::ios::binary) << head;
    head[4] = head[4] == 1 ? 2 : 1; // the other word size
    std::ofstream("class.so", std::ios::binary) << head;
    const struct
    {
        std::u16string path;
        DWORD error;
    } rows[] = {
        {u"libm.so.6", 0}, // by the system's search
        {u"here.so", 0},   // then here
        {u"here.DLL", 0},
        {u"HERE.dll", ERROR_MOD_NOT_FOUND},
        {u"sub\\plain.so", 0},
        {fs::current_path().u16string() + u"\\sub/plain.dll", 0},
        {u"sub/real.dll", 0},
        {u"sub/prefixed.dll", 0},
        {u"sub/prefixed.so", ERROR_MOD_NOT_FOUND},
        {u"sub/\u00FCml.so", 0},
        {std::u16string(u"sub/byte") + char16_t(0xDCFF) + u".so", 0},
        {u".dll", ERROR_MOD_NOT_FOUND},
        {u"", ERROR_INVALID_PARAMETER},
        {u"text.so/x.so", ERROR_MOD_NOT_FOUND},
        {u"text.so", ERROR_BAD_EXE_FORMAT},
        {u"./empty.so", ERROR_BAD_EXE_FORMAT},
        {u"./folder.so", ERROR_BAD_EXE_FORMAT},
        {u"./pipe.so", ERROR_BAD_EXE_FORMAT}, // and does not wait for a writer
        {u"./class.so", ERROR_BAD_EXE_FORMAT},
        {u"./cut.so", ERROR_MOD_NOT_FOUND},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(PathToBytes(row.path));
        SetLastError(0);
        errno = 77;
        const HMODULE module = LoadLibraryW(row.path.c_str());
        EXPECT_EQ(errno, 77);
        EXPECT_EQ(module == nullptr, row.error != 0);
        EXPECT_EQ(GetLastError(), row.error);
        EXPECT_EQ(module != nullptr && FreeLibrary(module) == kTrue, row.error == 0);
    }
    EXPECT_EQ(LoadLibraryW(nullptr), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST(Loader, EachLoadIsUndoneByOneFree)
{
    const HMODULE first = LoadLibraryA(QV_TEST_LIBRARY);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(LoadLibraryA(QV_TEST_LIBRARY), first);
    EXPECT_EQ(FreeLibrary(first), kTrue);
    EXPECT_NE(GetProcAddress(first, "TestAnswer"), nullptr);
    EXPECT_EQ(FreeLibrary(first), kTrue);
    for (const HMODULE dead : {first, HMODULE{}}) {
        EXPECT_EQ(FreeLibrary(dead), kFalse);
        EXPECT_EQ(GetProcAddress(dead, "TestAnswer"), nullptr);
        EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    }
}

TEST(Loader, BuiltInModulesHaveTheirFunctionsAndNoOthers)
{
    const HMODULE kernel = LoadLibraryA("KERNEL32.DLL");
    const HMODULE registry = LoadLibraryA("AdvApi32.dll");
    const struct
    {
        HMODULE module;
        const char* function;
        FARPROC found;
    } rows[] = {
        {kernel, "GetSystemTimePreciseAsFileTime",
         reinterpret_cast<FARPROC>(&GetSystemTimePreciseAsFileTime)},
        {registry, "RegDeleteKeyExW", reinterpret_cast<FARPROC>(&RegDeleteKeyExW)},
        {kernel, "RegDeleteKeyExW", nullptr},
        {registry, "", nullptr},
        {registry, "printf", nullptr},
    };
    for (const auto& row : rows) {
        SetLastError(0);
        EXPECT_EQ(GetProcAddress(row.module, row.function), row.found) << row.function;
        EXPECT_EQ(GetLastError(), row.found != nullptr ? 0 : ERROR_PROC_NOT_FOUND);
        EXPECT_EQ(FreeLibrary(row.module), kTrue) << "as often as one likes";
    }
    EXPECT_EQ(GetModuleHandleW(u"kernel32.dll"), kernel);
    EXPECT_EQ(GetModuleHandleW(u"libm.so.6"), nullptr);
}

TEST(SystemTime, CountsHundredsOfNanosecondsSince1601)
{
    FILETIME time = {};
    GetSystemTimePreciseAsFileTime(&time);
    const auto steps = static_cast<std::int64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
    EXPECT_NEAR(static_cast<double>(steps / 10000000 - 11644473600 - std::time(nullptr)), 0, 2);
}

} // namespace
