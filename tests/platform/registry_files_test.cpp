// The store's files: where they lie, who may use them, and files that are damaged or foreign.
#include <fcntl.h>
#include <lmdb.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <vector>

#include "platform/store_fixture.h"

using namespace qv::platform;
using namespace qv::test;

namespace
{

namespace fs = std::filesystem;
using Bytes = std::vector<char>;

constexpr uid_t kNobody = 65534;

Bytes ReadFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

void WriteFile(const std::string& path, const Bytes& bytes)
{
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path, std::ios::binary)
        .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// Reads, writes, deletes and enumerates. True if each gave that error.
testing::AssertionResult AllGive(LONG error)
{
    std::uint32_t number = 0;
    const LONG get = GetNumber(u"a", &number);
    const LONG set = SetNumber(u"a", 1);
    const LONG remove = RegDeleteKeyExW(PredefinedKey(kUserRoot), u"a", 0, 0);
    if (get == error && set == error && remove == error) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << "get " << get << ", set " << set << ", remove " << remove;
}

class RegistryFiles : public StoreTest
{};

// A database of another program, whole and in order.
Bytes ForeignDatabase(const std::string& folder, const char* key, std::size_t keySize)
{
    MDB_env* environment = nullptr;
    MDB_txn* transaction = nullptr;
    MDB_dbi database;
    MDB_val name = {keySize, const_cast<char*>(key)};
    MDB_val data = {4, const_cast<char*>("data")};
    fs::create_directories(folder);
    EXPECT_EQ(mdb_env_create(&environment), 0);
    EXPECT_EQ(mdb_env_open(environment, folder.c_str(), 0, 0600), 0);
    EXPECT_EQ(mdb_txn_begin(environment, nullptr, 0, &transaction), 0);
    EXPECT_EQ(mdb_dbi_open(transaction, nullptr, 0, &database), 0);
    EXPECT_EQ(mdb_put(transaction, database, &name, &data, 0), 0);
    EXPECT_EQ(mdb_txn_commit(transaction), 0);
    mdb_env_close(environment);
    return ReadFile(folder + "/data.mdb");
}

// The same store with another schema number.
Bytes OtherSchema(Bytes bytes)
{
    const char record[] = {1, 0, 0, 0, 0, 0, 0, 0, 16}; // schema 1, 0, next node 16
    const auto at = std::search(bytes.begin(), bytes.end(), std::begin(record), std::end(record));
    EXPECT_NE(at, bytes.end());
    if (at != bytes.end()) {
        *at = 2;
    }
    return bytes;
}

TEST_F(RegistryFiles, DamagedAndForeignFilesAreLeftAlone)
{
    {
        Key key;
        ASSERT_EQ(key.Open(kUserRoot, u""), 0);
    }
    CloseRegistryStores();
    const Bytes good = ReadFile(DataFile());
    Bytes metaOverwritten = good;
    std::fill_n(metaOverwritten.begin(), 8192, 'x');
    Bytes text(5000, 't');
    const struct
    {
        const char* what;
        Bytes bytes;
    } rows[] = {
        {"text", text},
        {"one byte", Bytes(1, 'x')},
        {"half a page", Bytes(good.begin(), good.begin() + 2048)},
        {"one page", Bytes(good.begin(), good.begin() + 4096)},
        {"overwritten heads", metaOverwritten},
        {"another program's", ForeignDatabase(Folder() + "/other", "key", 3)},
        {"another's with our key", ForeignDatabase(Folder() + "/same", "\0\0\0\0\0\0\0\0\0", 9)},
        {"another schema", OtherSchema(good)},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        WriteFile(DataFile(), row.bytes);
        EXPECT_TRUE(AllGive(1015));
        EXPECT_EQ(ReadFile(DataFile()), row.bytes);
        CloseRegistryStores();
        EXPECT_EQ(ReadFile(DataFile()), row.bytes);
    }
    std::uint32_t number;
    EXPECT_EQ(GetNumber(u"a", &number, kMachineRoot), 2) << "the other part is none the worse";
    // A failure is not remembered.
    WriteFile(DataFile(), good);
    EXPECT_EQ(SetNumber(u"a", 1), 0);
}

// Something else where a file or a folder should be.
TEST_F(RegistryFiles, FilesOfTheWrongKind)
{
    fs::create_directories(DataFile());
    EXPECT_TRUE(AllGive(5));
    fs::remove_all(Folder() + "/user");
    WriteFile(Folder() + "/user", Bytes(1, 'x'));
    std::uint32_t number;
    EXPECT_NE(GetNumber(u"a", &number), 0);
    EXPECT_NE(SetNumber(u"a", 1), 0);
    EXPECT_EQ(ReadFile(Folder() + "/user").size(), 1u);
}

TEST_F(RegistryFiles, GarbageInTheLockFileIsNotData)
{
    ASSERT_EQ(SetNumber(u"a", 1), 0);
    CloseRegistryStores();
    WriteFile(Folder() + "/user/lock.mdb", Bytes(5000, 'x'));
    std::uint32_t number = 0;
    EXPECT_EQ(GetNumber(u"a", &number), 0);
    EXPECT_EQ(number, 1u);
}

std::u16string LargeValue(int i)
{
    return std::u16string(static_cast<std::size_t>(200 + 37 * i), static_cast<char16_t>(u'a' + i));
}

// Each value is right, or there is an error. -1: a wrong one.
int CountValues(int values)
{
    int good = 0;
    Key key;
    if (key.Open(kUserRoot, u"k", KEY_READ) != 0) {
        return 0;
    }
    for (int i = 0; i < values; ++i) {
        const std::u16string expected = LargeValue(i);
        std::vector<char16_t> data(expected.size() + 1);
        DWORD size = static_cast<DWORD>(data.size() * 2);
        const WCHAR name[] = {static_cast<WCHAR>(0x4E00 + i), 0};
        if (RegQueryValueExW(key.Get(), name, nullptr, nullptr, data.data(), &size) == 0) {
            if (size != expected.size() * 2 ||
                std::memcmp(data.data(), expected.data(), size) != 0) {
                return -1;
            }
            ++good;
        }
    }
    return good;
}

// However much is cut off: no crash, nothing wrong, and the file stays as it is. What was cut from
// pages in no use does no harm.
TEST_F(RegistryFiles, EveryCutIsFound)
{
    constexpr int kValues = 60;
    {
        Key key;
        ASSERT_EQ(key.Create(kUserRoot, u"k"), 0);
        for (int i = 0; i < kValues; ++i) {
            const std::u16string text = LargeValue(i);
            const WCHAR name[] = {static_cast<WCHAR>(0x4E00 + i), 0};
            ASSERT_EQ(RegSetValueExW(key.Get(), name, 0, REG_SZ, text.c_str(),
                                     static_cast<DWORD>(text.size() * 2)),
                      0);
        }
    }
    CloseRegistryStores();
    const Bytes whole = ReadFile(DataFile());
    int refused = 0;
    for (std::size_t size = 0; size <= whole.size();
         size += size % 4096 == 0 ? 4095 : 1) { // the end of each page and one byte less
        SCOPED_TRACE(size);
        const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        WriteFile(DataFile(), cut);
        const int good = InChild([] { return CountValues(kValues); });
        EXPECT_TRUE(good == 0 || good == kValues) << good;
        if (size == 0) {
            continue; // an empty file is a new store
        }
        EXPECT_EQ(ReadFile(DataFile()), cut);
        refused += good == 0 ? 1 : 0;
        EXPECT_EQ(good == 0, InChild([] { return SetNumber(u"a", 1) == 1015 ? 1 : 0; }) == 1);
    }
    EXPECT_GT(refused, 20);
    EXPECT_EQ(InChild([] { return SetNumber(u"a", 1); }), 0);
}

// The rest of a test as a user who may only read. False: not possible here.
bool BecomeNobody(const std::string& folder)
{
    if (geteuid() == 0) {
        return setgid(kNobody) == 0 && setuid(kNobody) == 0;
    }
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        fs::permissions(entry.path(), entry.is_directory() ? fs::perms(0555) : fs::perms(0444));
    }
    // Who may only read still writes a mark into the lock file.
    fs::permissions(folder + "/machine/lock.mdb", fs::perms(0666));
    return chmod(folder.c_str(), 0555) == 0;
}

TEST_F(RegistryFiles, OthersMayReadTheMachinePart)
{
    ASSERT_EQ(SetNumber(u"a", 7, kMachineRoot), 0);
    struct stat facts = {};
    ASSERT_EQ(stat((Folder() + "/machine/lock.mdb").c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 0777, 0666u);
    ASSERT_EQ(stat((Folder() + "/machine/data.mdb").c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 0777, 0644u);
    ASSERT_EQ(SetNumber(u"a", 7), 0);
    ASSERT_EQ(stat((Folder() + "/user").c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 0777, 0700u);
    ASSERT_EQ(stat(DataFile().c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 0777, 0600u);
    CloseRegistryStores();
    const int step = InChild([&] {
        if (!BecomeNobody(Folder())) {
            return 1;
        }
        std::uint32_t number = 0;
        if (GetNumber(u"a", &number, kMachineRoot) != 0 || number != 7) {
            return 2;
        }
        if (SetNumber(u"a", 8, kMachineRoot) != 5 || SetNumber(u"b", 8, kMachineRoot) != 5) {
            return 3;
        }
        if (RegDeleteKeyExW(PredefinedKey(kMachineRoot), u"a", 0, 0) != 5) {
            return 4;
        }
        return GetNumber(u"a", &number, kMachineRoot) == 0 && number == 7 ? 0 : 5;
    });
    EXPECT_EQ(step, 0);
    std::uint32_t number = 0;
    EXPECT_EQ(GetNumber(u"a", &number, kMachineRoot), 0);
    EXPECT_EQ(number, 7u);
    chmod(Folder().c_str(), 0755);
}

TEST_F(RegistryFiles, WithoutAStoreAndTheRightToMakeOne)
{
    chmod(Folder().c_str(), 0555);
    const int step = InChild([] {
        if (geteuid() == 0 && (setgid(kNobody) != 0 || setuid(kNobody) != 0)) {
            return 1;
        }
        std::uint32_t number;
        if (GetNumber(u"a", &number) != 2) {
            return 2;
        }
        return SetNumber(u"a", 1) == 5 ? 0 : 3;
    });
    EXPECT_EQ(step, 0);
    chmod(Folder().c_str(), 0755);
}

TEST_F(RegistryFiles, TheUsersPartFollowsTheEnvironment)
{
    const std::string home = Folder() + "/home";
    const struct
    {
        const char* data;  // XDG_DATA_HOME
        const char* state; // QVCORE6_STATE_DIR
        const char* file;  // below home
    } rows[] = {
        {nullptr, nullptr, "/.local/share/qvcore6/registry/data.mdb"},
        {"relative", nullptr, "/.local/share/qvcore6/registry/data.mdb"},
        {"/data", nullptr, "/data/qvcore6/registry/data.mdb"},
        {"/data", "state", "/state/user/data.mdb"}, // below the current directory
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.file);
        fs::remove_all(home);
        fs::create_directories(home);
        const int step = InChild([&] {
            if (chdir(home.c_str()) != 0) {
                return 1;
            }
            setenv("HOME", home.c_str(), 1);
            unsetenv("XDG_DATA_HOME");
            unsetenv("QVCORE6_STATE_DIR");
            if (row.data != nullptr) {
                const std::string data = row.data[0] == '/' ? home + row.data : row.data;
                setenv("XDG_DATA_HOME", data.c_str(), 1);
            }
            if (row.state != nullptr) {
                setenv("QVCORE6_STATE_DIR", row.state, 1);
            }
            if (SetNumber(u"a", 1) != 0) {
                return 2;
            }
            // A child goes on with the same store, wherever it stands.
            return chdir("/") != 0 ? 3 : InChild([] {
                std::uint32_t number = 0;
                return GetNumber(u"a", &number) == 0 && number == 1 ? 0 : 4;
            });
        });
        EXPECT_EQ(step, 0);
        EXPECT_TRUE(fs::exists(home + row.file));
    }
}

TEST_F(RegistryFiles, NothingIsLeftOpenForAnotherProgram)
{
    ASSERT_EQ(SetNumber(u"a", 1), 0);
    ASSERT_EQ(SetNumber(u"a", 1, kMachineRoot), 0);
    int ours = 0;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        const fs::path target = fs::read_symlink(entry.path(), error);
        if (target.string().rfind(Folder(), 0) == 0) {
            ++ours;
            EXPECT_EQ(fcntl(std::stoi(entry.path().filename()), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC)
                << target;
        }
    }
    EXPECT_GT(ours, 3);
    for (const auto& entry : fs::recursive_directory_iterator(Folder())) {
        EXPECT_EQ(entry.path().string().find("/new-"), std::string::npos) << entry.path();
    }
}

} // namespace
