// The store's files: who may use them, and files that are damaged or foreign.
#include <fcntl.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

#include "platform/store_fixture.h"

using namespace qv::test;

namespace
{

namespace fs = std::filesystem;

std::string ReadFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

void WriteFile(const std::string& path, const std::string& bytes)
{
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
}

std::vector<std::int64_t> AllCalls()
{
    return {-GetNumber(u"a"), SetNumber(u"a", 1), Delete(u"a")};
}

class RegistryFiles : public StoreTest
{};

TEST_F(RegistryFiles, DamagedAndForeignFilesAreLeftAlone)
{
    ASSERT_EQ(Key(u"").error, 0);
    CloseRegistryStores();
    const std::string good = ReadFile(DataFile());
    // Schema 1, 0, next node 16, in little-endian order.
    const std::size_t schema = good.find(std::string("\1\0\0\0\0\0\0\0\x10", 9));
    ASSERT_NE(schema, std::string::npos);
    const auto with = [](std::string bytes, std::size_t at, const std::string& piece) {
        return bytes.replace(at, piece.size(), piece);
    };
    const std::pair<const char*, std::string> rows[] = {
        {"nothing", ""},
        {"text", std::string(5000, 't')},
        {"half a page", good.substr(0, 2048)},
        {"overwritten heads", with(good, 0, std::string(8192, 'x'))},
        {"another schema", with(good, schema, "\2")},
        {"two page sizes", with(good, 4096 + 41, "\x40")},
        {"the last transaction", with(good, 4096 + 144, std::string(8, '\xFF'))},
        {"another version of LMDB", with(with(good, 20, "\2"), 4096 + 20, "\2")},
    };
    for (const auto& [what, bytes] : rows) {
        SCOPED_TRACE(what);
        WriteFile(DataFile(), bytes);
        EXPECT_EQ(AllCalls(), std::vector<std::int64_t>(3, 1015));
        CloseRegistryStores();
        EXPECT_TRUE(ReadFile(DataFile()) == bytes);
    }
    EXPECT_EQ(GetNumber(u"a", HKEY_LOCAL_MACHINE), -2) << "the other part is none the worse";
    WriteFile(DataFile(), good);
    EXPECT_EQ(SetNumber(u"a", 1), 0) << "a failure is not remembered";
    CloseRegistryStores();
    WriteFile(Folder() + "/user/lock.mdb", std::string(5000, 'x'));
    EXPECT_EQ(GetNumber(u"a"), 1) << "a lock file holds no data";
    CloseRegistryStores();
    fs::remove_all(Folder() + "/user");
    fs::create_directories(DataFile());
    EXPECT_EQ(AllCalls(), std::vector<std::int64_t>(3, 5)) << "a folder";
}

// Changes keys and values of all sizes. What one call cannot do, the next still tries.
int ChangeAll(std::uint32_t seed)
{
    std::mt19937 random(seed);
    const Key key(u"k");
    std::string data(30000, 'd');
    WCHAR name[300];
    for (DWORD i = 0; i < 150; ++i) {
        DWORD units = 300;
        auto size = static_cast<DWORD>(data.size());
        RegEnumValueW(key.handle, i, name, &units, nullptr, nullptr, data.data(), &size);
        units = 300;
        RegEnumKeyExW(key.handle, i, name, &units, nullptr, nullptr, nullptr, nullptr);
        const std::u16string some(1, static_cast<char16_t>(0x4E00 + random() % 200));
        size = static_cast<DWORD>(random() % (random() % 8 == 0 ? data.size() : 200));
        RegSetValueExW(key.handle, some.c_str(), 0, REG_BINARY, data.data(), size);
        SetNumber(u"k\\" + some, i);
        if (i % 5 == 0) {
            RegDeleteValueW(key.handle, some.c_str());
            Delete(u"k\\" + some);
        }
    }
    return key.error == 1015 ? 1 : 0;
}

// A file that is cut, or one with a bit turned, zeros, or another page in the
// place of one: the store is refused, or the damage does no harm. It never ends the process.
TEST_F(RegistryFiles, DamageOfPagesEndsNoProcess)
{
    constexpr std::size_t kPage = 4096;
    ChangeAll(1);
    ChangeAll(2);
    CloseRegistryStores();
    const std::string whole = ReadFile(DataFile());
    std::mt19937 random(3);
    int refused = 0;
    for (int round = 0; round < 100; ++round) {
        SCOPED_TRACE(round);
        std::string bytes = whole;
        const std::size_t page = random() % (whole.size() / kPage) * kPage;
        const std::size_t at = page + random() % (round % 2 == 0 ? 24 : kPage);
        switch (random() % 4) {
        case 0:
            bytes[at] = static_cast<char>(bytes[at] ^ 1 << random() % 8);
            break;
        case 1:
            bytes.resize(round % 2 == 0 ? page : at);
            break;
        case 2:
            bytes.replace(page, kPage, kPage, '\0');
            break;
        default:
            bytes.replace(page, kPage, whole, random() % (whole.size() / kPage) * kPage, kPage);
            break;
        }
        WriteFile(DataFile(), bytes);
        const int result = InChild([] { return ChangeAll(4); });
        EXPECT_NE(result, -1);
        EXPECT_TRUE(result != 1 || ReadFile(DataFile()) == bytes);
        refused += result;
    }
    EXPECT_GT(refused, 8);
    EXPECT_LT(refused, 92);
    WriteFile(DataFile(), whole);
    EXPECT_EQ(ChangeAll(4), 0);
}

TEST_F(RegistryFiles, WithoutTheRightToWrite)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    constexpr std::uint32_t kMachine = HKEY_LOCAL_MACHINE;
    EXPECT_TRUE(InChild([] {
        return setuid(65534) == 0 && GetNumber(u"a") == -2 && SetNumber(u"a", 1) == 5;
    })) << "there is no store";
    ASSERT_EQ(SetNumber(u"a", 7, kMachine), 0);
    ASSERT_EQ(SetNumber(u"a", 7), 0);
    for (const auto& [path, mode] : {std::pair{"/machine/lock.mdb", 0666},
                                     {"/machine/data.mdb", 0644},
                                     {"/user", 0700},
                                     {"/user/data.mdb", 0600}}) {
        EXPECT_EQ(fs::status(Folder() + path).permissions(), fs::perms(mode)) << path;
    }
    CloseRegistryStores();
    EXPECT_TRUE(InChild([] {
        return setuid(65534) == 0 && GetNumber(u"a", kMachine) == 7 &&
               SetNumber(u"a", 8, kMachine) == 5 && SetNumber(u"b", 8, kMachine) == 5 &&
               Delete(u"a", kMachine) == 5 && GetNumber(u"a", kMachine) == 7;
    }));
    EXPECT_EQ(GetNumber(u"a", kMachine), 7);
}

TEST_F(RegistryFiles, TheUsersPartFollowsTheEnvironment)
{
    const std::string home = Folder() + "/home";
    const std::string rows[][3] = {
        // XDG_DATA_HOME, QVCORE6_STATE_DIR, folder
        {"relative", "", home + "/.local/share/qvcore6/registry"},
        {home + "/data", "", home + "/data/qvcore6/registry"},
        {home + "/data", "state", home + "/state/user"}, // below the current folder
    };
    fs::create_directories(home);
    setenv("HOME", home.c_str(), 1);
    for (const auto& [data, state, folder] : rows) {
        setenv("XDG_DATA_HOME", data.c_str(), 1);
        setenv("QVCORE6_STATE_DIR", state.c_str(), 1);
        EXPECT_TRUE(InChild([&home] {
            fs::current_path(home);
            const LONG error = SetNumber(u"a", 1);
            fs::current_path("/"); // a child goes on with the same store
            return error == 0 && InChild([] { return GetNumber(u"a") == 1; }) == 1;
        }));
        EXPECT_TRUE(fs::exists(folder + "/data.mdb")) << folder;
    }
}

// What a program prints must not land in the store, and what it starts has no business there.
TEST_F(RegistryFiles, OpenFilesAreNoStreamsAndNotInherited)
{
    EXPECT_TRUE(InChild([this] {
        close_range(0, 2, 0);
        bool good = SetNumber(u"a", 1) == 0;
        int ours = 0;
        for (int file = 0; file < 100; ++file) {
            std::error_code error;
            const fs::path path = fs::read_symlink("/proc/self/fd/" + std::to_string(file), error);
            if (path.string().find(Folder()) == 0) {
                ++ours;
                good = good && file > 2 && (fcntl(file, F_GETFD) & FD_CLOEXEC) != 0;
            }
        }
        return good && ours == 3; // the data, the data to be synced, the lock
    }));
    EXPECT_EQ(std::distance(fs::recursive_directory_iterator(Folder()), {}), 3) << "left over";
}

} // namespace
