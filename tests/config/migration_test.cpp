// The configuration in an ini file, and its way from one store to the other.
#include <gtest/gtest.h>
#include <qvcore6/registry.h>
#include <qvcore6/sysinfo.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "config/fresh_state.h"
#include "config/ini_store.h"
#include "config/ini_support.h"
#include "config/native_key.h"
#include "frame/exception.h"
#include "frame/facts.h"
#include "support/alloc_faults.h"
#include "support/child_process.h"
#include "support/own_folder.h"

using namespace qv::test;
using namespace qv::core;
namespace platform = qv::platform;
namespace fs = std::filesystem;

namespace
{

const FreshState g_state; // before the first call

int g_nextKeyFails = 0; // the n-th call from now on
QVRESULT g_userName = S_OK;

} // namespace

extern "C"
{
    decltype(QVRegistryOpenKeyEnum) __real_QVRegistryOpenKeyEnum;
    decltype(QVRegistryOpenValueEnum) __real_QVRegistryOpenValueEnum;
    decltype(QVGetUserName) __real_QVGetUserName;

    QVRESULT __wrap_QVRegistryOpenKeyEnum(uint32_t root, const QVWChar* path, QVRegEnum* handle)
    {
        *handle = QV_REG_ENUM_NONE;
        return g_nextKeyFails != 0 && --g_nextKeyFails == 0
                   ? E_FAIL
                   : __real_QVRegistryOpenKeyEnum(root, path, handle);
    }
    QVRESULT __wrap_QVRegistryOpenValueEnum(uint32_t root, const QVWChar* path, QVRegEnum* handle)
    {
        *handle = QV_REG_ENUM_NONE;
        return std::u16string_view(path) == u"closed"
                   ? E_ACCESSDENIED
                   : __real_QVRegistryOpenValueEnum(root, path, handle);
    }
    QVRESULT __wrap_QVGetUserName(QVWChar* name, uint32_t size)
    {
        return g_userName < 0 ? g_userName : __real_QVGetUserName(name, size);
    }
}

namespace
{

constexpr const char* kFile = "qvregistry.ini";

// A value as type and bytes.
using Value = std::pair<uint32_t, std::string>;

std::string Text(const std::u16string& text)
{
    return {reinterpret_cast<const char*>(text.c_str()), 2 * text.size() + 2};
}

QVRESULT Set(uint32_t root, const std::u16string& key, const std::u16string& name,
             const Value& value)
{
    return QVRegistrySetValue(root, key.c_str(), name.c_str(), value.first, value.second.data(),
                              static_cast<uint32_t>(value.second.size()));
}

Value Get(uint32_t root, const std::u16string& key, const std::u16string& name)
{
    std::string data(5000, 0);
    auto size = static_cast<uint32_t>(data.size());
    uint32_t type = 99;
    if (QVRegistryGetValue(root, key.c_str(), name.c_str(), &type, data.data(), &size) < 0) {
        return {99, ""};
    }
    return {type, data.substr(0, size)};
}

std::u16string Name(int number)
{
    const std::string digits = std::to_string(number);
    return {digits.begin(), digits.end()};
}

// In a folder of its own, with empty stores.
class Migration : public testing::Test
{
protected:
    Migration() { fs::current_path(m_folder.Bytes()); }
    ~Migration() override
    {
        s_isWow64 = 1; // both views
        Clear();
        s_isWow64 = 0;
        Clear();
        fs::current_path("/");
    }
    static void Clear()
    {
        for (const uint32_t root : {QV_HKEY_CLASSES, QV_HKEY_CONFIG, QV_HKEY_USER,
                                    QV_HKEY_CLASSES_64, QV_HKEY_CONFIG_64}) {
            QVRegistryDeleteKey(root, u"");
            QVRegistryDeleteValue(root, u"", u"v"); // of the root itself
        }
    }
    void TearDown() override { EXPECT_EQ(m_descriptors, CountDescriptors()); }

    const OwnFolder m_folder;
    const std::ptrdiff_t m_descriptors = [] {
        Get(QV_HKEY_USER, u"", u""); // the store stays open
        return CountDescriptors();
    }();
};

// The back end alone, as one migration uses it.
class IniStore : public Migration
{
protected:
    IniStore() { registry::Init(); }
    ~IniStore() override { registry::Term(); }
};

TEST_F(IniStore, NamesSections)
{
    QVRegEnum none;
    g_userName = E_ACCESSDENIED;
    EXPECT_EQ(E_ACCESSDENIED, registry::OpenValueEnum(QV_HKEY_USER, u"", &none));
    EXPECT_EQ(QV_REG_ENUM_NONE, none);
    g_userName = S_OK;
    char16_t user[64];
    QVGetUserName(user, 64);
    EXPECT_EQ(u"QV_HKEY_CLASSES", registry::MakeSectionName(0, u""));
    EXPECT_EQ(u"QV_HKEY_CONFIG\\Net\\Ports", registry::MakeSectionName(1, u"Net\\Ports"));
    EXPECT_EQ(std::u16string(u"QV_HKEY_USER\\") + user + u"\\Net",
              registry::MakeSectionName(QV_HKEY_USER, u"Net"));
    EXPECT_EQ(u"QV_HKEY_CLASSES_64\\\\", registry::MakeSectionName(3, u"\\"));
    EXPECT_EQ(u"QV_HKEY_CONFIG_64", registry::MakeSectionName(4, u""));
    for (const uint32_t root : {5u, 0x80000002u}) {
        EXPECT_EQ(E_INVALIDARG, registry::SetValue(root, u"", u"", 0, u"", 2));
        EXPECT_EQ(E_INVALIDARG, registry::OpenKeyEnum(root, u"", &none));
        EXPECT_EQ(E_NOTIMPL, registry::SetValue(root, u"", u"", 1, u"", 2)); // comes first
    }
}

TEST_F(IniStore, ReadsWritesAndEnumerates)
{
    for (const auto& [name, text] : {std::pair(u"Main", u"42"), {u"Spare", u""}}) {
        EXPECT_EQ(S_OK, registry::SetValue(QV_HKEY_CONFIG, u"Net\\Ports", name, 0, text, 0));
    }
    const struct
    {
        uint32_t root;
        const char16_t* key;
        const char16_t* name;
        uint32_t room;
        QVRESULT result;
        std::u16string text;
    } rows[] = {
        {QV_HKEY_CONFIG, u"Net\\Ports", u"Main", 4, QV_E_FILE_NOT_FOUND, u"before"},
        {QV_HKEY_CONFIG, u"Net", u"Main", 16, QV_E_FILE_NOT_FOUND, u"before"},
        {QV_HKEY_CONFIG_64, u"Net\\Ports", u"Main", 16, QV_E_FILE_NOT_FOUND, u"before"},
        {QV_HKEY_CONFIG, u"net\\PORTS", u"main", 6, S_OK, u"42"},
        {QV_HKEY_CONFIG, u"Net\\Ports", u"Spare", 16, S_OK, u""},
    };
    for (const auto& row : rows) {
        char16_t data[8] = u"before";
        uint32_t type = 9;
        uint32_t size = row.room;
        EXPECT_EQ(row.result, registry::GetValue(row.root, row.key, row.name, &type, data, &size));
        EXPECT_EQ(row.text, data);
        EXPECT_EQ(row.result == S_OK ? 2 * row.text.size() + 2 : row.room, size);
        EXPECT_EQ(row.result == S_OK ? 0u : 9u, type);
    }
    QVRegEnum keys;
    QVRegEnum values;
    ASSERT_EQ(S_OK, registry::OpenKeyEnum(QV_HKEY_CONFIG, u"", &keys));
    ASSERT_EQ(S_OK, registry::OpenValueEnum(QV_HKEY_CONFIG, u"Net\\Ports", &values));
    char16_t name[8] = u"-------";
    uint32_t units = 3;
    const auto nextValue = [&](void* data, uint32_t* size) {
        return registry::EnumNextValue(values, name, &units, nullptr, data, size);
    };
    EXPECT_EQ(QV_E_BUFFER_TOO_SMALL, registry::EnumNextKey(keys, name, &units));
    EXPECT_EQ(std::u16string(u"Net----"), name);
    EXPECT_EQ(3u, units);
    EXPECT_EQ(QV_E_END_OF_DATA, registry::EnumNextKey(keys, name, &units));
    EXPECT_EQ(QV_E_BUFFER_TOO_SMALL, nextValue(nullptr, nullptr)); // "Main" has passed
    char16_t data[8] = u"before";
    uint32_t size = sizeof data;
    units = 8;
    EXPECT_EQ(S_OK, nextValue(data, &size));
    EXPECT_EQ(std::u16string(u"Spare"), name);
    EXPECT_EQ((std::pair{5u, 2u}), (std::pair{units, size}));
    EXPECT_EQ(QV_E_END_OF_DATA, nextValue(nullptr, nullptr));
    for (const QVRegEnum open : {keys, values, QVRegEnum(nullptr)}) {
        registry::CloseEnum(open);
    }
    EXPECT_EQ(S_OK, registry::OpenValueEnum(QV_HKEY_CONFIG, u"Net", &values)); // only keys below
    registry::CloseEnum(values);
    EXPECT_EQ(QV_E_FILE_NOT_FOUND, registry::OpenValueEnum(QV_HKEY_CONFIG, u"none", &values));
    EXPECT_EQ("[QV_HKEY_CONFIG\\Net\\Ports]\nMain=42\nSpare=\n\n", ReadFile(kFile));
    EXPECT_EQ(S_OK, registry::DeleteIniFile());
    EXPECT_EQ(S_OK, registry::DeleteIniFile()); // gone already
    EXPECT_FALSE(fs::exists(kFile));
}

TEST_F(Migration, CarriesWhatTheTargetTakes)
{
    setenv("QV_TEST_WHERE", "/srv", 1);
    const std::u16string most(1023, u'x'); // 2,048 bytes with the terminator
    const struct
    {
        Value native;
        Value ini;     // after the way into the ini file and back
        Value native2; // after the way onto itself
    } rows[] = {
        {{0, Text(u"t\xE9xt")}, {0, Text(u"t\xE9xt")}, {0, Text(u"t\xE9xt")}},
        {{0, Text(u"")}, {0, Text(u"")}, {0, Text(u"")}},
        {{0, std::string("h\0i\0", 4)}, {0, Text(u"hi")}, {0, std::string("h\0i\0", 4)}},
        {{0, "odd"},
         {0, Text(u"\x646F"
                  u"d")},
         {0, "odd"}},
        {{4, Text(u"%QV_TEST_WHERE%/a")}, {0, Text(u"/srv/a")}, {0, Text(u"/srv/a")}},
        {{1, "1234"}, {99, ""}, {1, "1234"}},
        {{3, std::string(2047, 'b')}, {99, ""}, {3, std::string(2047, 'b')}},
        {{3, std::string(2048, 'b')}, {99, ""}, {3, std::string(2048, 'b')}},
        {{3, std::string(2049, 'b')}, {99, ""}, {3, std::string(2049, 'b')}},
        {{3, ""}, {99, ""}, {3, ""}},
        {{5, Text(u"a") + Text(u"")}, {99, ""}, {5, Text(u"a") + Text(u"")}},
    };
    const int count = static_cast<int>(std::size(rows));
    for (const uint32_t root : {QV_HKEY_CLASSES, QV_HKEY_CONFIG, QV_HKEY_USER}) {
        for (int i = 0; i < count; ++i) {
            EXPECT_EQ(S_OK, Set(root, i % 2 != 0 ? u"k\\l" : u"k", Name(i), rows[i].native));
        }
    }
    const auto expect = [&](auto wanted) {
        for (const uint32_t root : {QV_HKEY_CLASSES, QV_HKEY_CONFIG, QV_HKEY_USER}) {
            for (int i = 0; i < count; ++i) {
                EXPECT_EQ(wanted(rows[i]), Get(root, i % 2 != 0 ? u"k\\l" : u"k", Name(i))) << i;
            }
        }
    };
    // What can be read, but not written.
    const Value number = {QV_REGTYPE_QWORD, "12345678"};
    NativeKey key;
    key.Open(MapRoot(QV_HKEY_CONFIG).key, u"k", platform::KEY_ALL_ACCESS);
    platform::RegSetValueExW(key.Get(), u"q", 0, platform::REG_QWORD, "12345678", 8);
    key.Close();
    EXPECT_EQ(S_OK, QVRegistryMigrate(QV_STORE_NATIVE, 1, QV_STORE_NATIVE, 2));
    EXPECT_EQ(number, Get(QV_HKEY_CONFIG, u"k", u"q"));
    expect([](auto& row) { return row.native2; });
    EXPECT_EQ(S_OK, QVRegistryMigrate(QV_STORE_NATIVE, 0, QV_STORE_INI, 0));
    expect([](auto& row) { return row.native2; });
    Clear();
    EXPECT_EQ(S_OK, QVRegistryMigrate(QV_STORE_INI, 0, QV_STORE_NATIVE, 0));
    EXPECT_FALSE(fs::exists(kFile));
    expect([](auto& row) { return row.ini; });
    EXPECT_EQ((Value{99, ""}), Get(QV_HKEY_CONFIG, u"k", u"q"));
    // Without a file there is nothing to move.
    EXPECT_EQ(S_OK, QVRegistryMigrate(QV_STORE_INI, 0, QV_STORE_NATIVE, 0));
    expect([](auto& row) { return row.ini; });
    // Onto itself, and away.
    EXPECT_EQ(S_OK, QVRegistryMigrate(QV_STORE_NATIVE, 0, QV_STORE_INI, 0));
    EXPECT_EQ(S_OK, QVRegistryMigrate(QV_STORE_INI, 0, QV_STORE_INI, 0));
    EXPECT_FALSE(fs::exists(kFile));
}

TEST_F(Migration, KeepsWhatTheIniFileCannotGiveBack)
{
    Set(QV_HKEY_CONFIG, u"a", u"v", {0, Text(std::u16string(1023, u'x'))});
    Set(QV_HKEY_CONFIG, u"b", u"v", {0, Text(u"second")});
    EXPECT_EQ(S_OK, QVRegistryMigrate(QV_STORE_NATIVE, 0, QV_STORE_INI, 0));
    const std::string text = ReadFile(kFile);
    EXPECT_NE(std::string::npos, text.find("second"));
    Clear();
    // The line is longer than the format reads: the file is all that is left.
    EXPECT_EQ(S_OK, QVRegistryMigrate(QV_STORE_INI, 0, QV_STORE_NATIVE, 0));
    EXPECT_EQ(text, ReadFile(kFile));
}

TEST_F(Migration, MovesLongNamesAndDeepTrees)
{
    const std::u16string name255(255, u'n');
    const std::u16string name256(256, u'm'); // as the name of a value
    std::u16string deep = u"d";
    for (int i = 1; i < 100; ++i) {
        deep += u"\\d";
    }
    Set(QV_HKEY_CONFIG, name255, name255, {0, Text(u"long")});
    Set(QV_HKEY_CONFIG, deep, u"v", {0, Text(u"deep")});
    Set(QV_HKEY_CONFIG, u"k", u"a", {0, Text(u"before")});
    Set(QV_HKEY_CONFIG, u"k", name256, {0, Text(u"long")});
    Set(QV_HKEY_CONFIG, u"k", u"z", {0, Text(u"behind")});
    EXPECT_EQ(S_OK, QVRegistryMigrate(QV_STORE_NATIVE, 0, QV_STORE_INI, 0));
    Clear();
    EXPECT_EQ(S_OK, QVRegistryMigrate(QV_STORE_INI, 0, QV_STORE_NATIVE, 0));
    EXPECT_EQ(Text(u"long"), Get(QV_HKEY_CONFIG, name255, name255).second);
    EXPECT_EQ(Text(u"deep"), Get(QV_HKEY_CONFIG, deep, u"v").second);
    EXPECT_EQ(Text(u"before"), Get(QV_HKEY_CONFIG, u"k", u"a").second);
    EXPECT_EQ("", Get(QV_HKEY_CONFIG, u"k", u"z").second);
    EXPECT_FALSE(fs::exists(kFile));
    // Deeper than a stack of one frame a level would be, from one line each.
    std::ofstream file(kFile);
    std::string section = "QV_HKEY_CONFIG";
    for (int i = 0; i < 240; ++i) {
        section += "\\e";
    }
    file << '[' << section << "]\nv=w\n\n[QV_HKEY_CONFIG\\]\nv=w\n\n"; // the last names no key
    file.close();
    EXPECT_EQ(S_OK, QVRegistryMigrate(QV_STORE_INI, 0, QV_STORE_NATIVE, 0));
}

TEST_F(Migration, VisitsBothViewsOfA32BitProcess)
{
    const std::string text = "[QV_HKEY_CLASSES]\nv=32\n\n[QV_HKEY_CLASSES_64]\nv=64\n\n"
                             "[QV_HKEY_CONFIG]\nv=32\n\n[QV_HKEY_CONFIG_64]\nv=64\n\n";
    for (const bool isWow64 : {false, true}) {
        Clear();
        s_isWow64 = isWow64 ? 1 : 0;
        std::ofstream(kFile) << text;
        EXPECT_EQ(S_OK, QVRegistryMigrate(QV_STORE_INI, 0, QV_STORE_NATIVE, 0));
        EXPECT_FALSE(fs::exists(kFile));
        EXPECT_EQ(Text(u"32"), Get(QV_HKEY_CLASSES, u"", u"v").second);
        EXPECT_EQ(Text(isWow64 ? u"64" : u"32"), Get(QV_HKEY_CONFIG_64, u"", u"v").second);
        EXPECT_EQ(S_OK, QVRegistryMigrate(QV_STORE_NATIVE, 0, QV_STORE_INI, 0));
        EXPECT_EQ(isWow64, ReadFile(kFile) == text);
        fs::remove(kFile);
    }
}

TEST_F(Migration, StopsWithBothStoresUsable)
{
    Set(QV_HKEY_CONFIG, u"a\\b", u"v", {0, Text(u"1")});
    Set(QV_HKEY_CONFIG, u"c", u"v", {0, Text(u"2")});
    Set(QV_HKEY_CONFIG, u"closed", u"v", {0, Text(u"3")});
    const std::string whole = "[QV_HKEY_CONFIG\\a\\b]\nv=1\n\n[QV_HKEY_CONFIG\\c]\nv=2\n\n";
    EXPECT_EQ(QV_E_UNKNOWN_STORE_KIND, QVRegistryMigrate(2, 0, QV_STORE_INI, 0));
    EXPECT_EQ(QV_E_UNKNOWN_STORE_KIND, QVRegistryMigrate(QV_STORE_INI, 0, 7, 0));
    // At the root of the classes, that of the configuration, a, a\b, c, and the one that is closed.
    const std::string after[] = {
        "", "", "", "", "", whole.substr(0, whole.find("[QV_HKEY_CONFIG\\c")), whole};
    for (int n = 1; n <= 6; ++n) {
        fs::remove(kFile);
        g_nextKeyFails = n;
        EXPECT_EQ(E_FAIL, QVRegistryMigrate(QV_STORE_NATIVE, 0, QV_STORE_INI, 0));
        EXPECT_EQ(after[n], ReadFile(kFile)) << n;
    }
    EXPECT_EQ(S_OK, QVRegistryMigrate(QV_STORE_NATIVE, 0, QV_STORE_INI, 0));
    EXPECT_EQ(whole, ReadFile(kFile));
    // The way back, until there is no memory.
    const long blocks = LiveBlocks();
    SweepAllocations(
        [&] {
            const QVRESULT result = QVRegistryMigrate(QV_STORE_INI, 0, QV_STORE_NATIVE, 0);
            EXPECT_TRUE(result == S_OK || result == E_OUTOFMEMORY) << result;
            EXPECT_EQ(result != S_OK, fs::exists(kFile));
        },
        [&](long, bool) {
            EXPECT_EQ(blocks, LiveBlocks());
            EXPECT_TRUE(IniSemaphore().Takes());
            std::ofstream(kFile) << whole;
        });
}

TEST_F(Migration, RunsOnceAtATimeAlsoInAForkedChild)
{
    for (int i = 0; i < 300; ++i) {
        Set(QV_HKEY_USER, u"k", Name(i), {0, Text(u"v")});
    }
    std::atomic<bool> done = false;
    std::thread other([&] {
        while (!done) {
            QVRegistryMigrate(QV_STORE_NATIVE, 0, QV_STORE_INI, 0);
        }
    });
    long refused = 0;
    for (int i = 0; i < 20; ++i) {
        refused += QVRegistryMigrate(QV_STORE_NATIVE, 0, QV_STORE_NATIVE, 0) == E_ACCESSDENIED;
        Child child([] {
            alarm(20);
            return QVRegistryMigrate(QV_STORE_NATIVE, 0, QV_STORE_INI, 0) == S_OK;
        });
        EXPECT_TRUE(child.Succeeded());
    }
    EXPECT_GT(refused, 0);
    done = true;
    other.join();
}

TEST_F(Migration, MovesLargeTrees)
{
    const bool isPlain = ResidentPages() != 0;
    const int keys = isPlain ? 100 : 10;
    {
        std::ofstream file(kFile);
        for (int key = 0; key < keys; ++key) {
            file << "[QV_HKEY_CONFIG\\large\\" << key << "]\n";
            for (int value = 0; value < 1000; ++value) {
                file << value << '=' << key * 1000 + value << '\n';
            }
            file << '\n';
        }
    }
    EXPECT_EQ(S_OK, QVRegistryMigrate(QV_STORE_INI, 0, QV_STORE_NATIVE, 0));
    for (const int i : {0, 777, keys * 1000 - 1}) {
        EXPECT_EQ(Text(Name(i)),
                  Get(QV_HKEY_CONFIG, u"large\\" + Name(i / 1000), Name(i % 1000)).second);
    }
    Clear();
    const int values = isPlain ? 2000 : 200;
    for (int i = 0; i < values; ++i) {
        Set(QV_HKEY_CONFIG, Name(i % 7), Name(i), {0, Text(Name(i))});
    }
    EXPECT_EQ(S_OK, QVRegistryMigrate(QV_STORE_NATIVE, 0, QV_STORE_INI, 0));
    const std::string text = ReadFile(kFile);
    EXPECT_EQ(values, std::count(text.begin(), text.end(), '='));
}

} // namespace
