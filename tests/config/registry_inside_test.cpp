// What depends on facts of the platform, which the tests set here, and on calls that fail.
#include <qvcore6/registry.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "config/fresh_state.h"
#include "frame/facts.h"
#include "platform/registry_store.h"

using qv::platform::DWORD;
using qv::platform::HKEY;
using qv::platform::LONG;

namespace
{

const qv::test::FreshState g_state;

const char16_t* g_refused = nullptr; // the name of a key that does not open
bool g_recording = false;
std::vector<std::u16string> g_deleted;
LONG g_deletionFails = 0; // what every deletion of a key answers instead of being done
bool g_without = false;   // the last deletion was the call that takes no view

void Record(const char16_t* path)
{
    if (g_recording) {
        g_deleted.emplace_back(path);
    }
}

} // namespace

extern "C"
{
    LONG __real_RegOpenKeyExW(HKEY key, const char16_t* path, DWORD options, DWORD access,
                              HKEY* opened);
    LONG __real_RegDeleteKeyExW(HKEY key, const char16_t* path, DWORD view, DWORD reserved);
    LONG __real_RegDeleteKeyW(HKEY key, const char16_t* path);

    LONG __wrap_RegOpenKeyExW(HKEY key, const char16_t* path, DWORD options, DWORD access,
                              HKEY* opened)
    {
        if (g_refused != nullptr && path != nullptr && std::u16string_view(path) == g_refused) {
            return 5;
        }
        return __real_RegOpenKeyExW(key, path, options, access, opened);
    }

    LONG __wrap_RegDeleteKeyExW(HKEY key, const char16_t* path, DWORD view, DWORD reserved)
    {
        Record(path);
        g_without = false;
        return g_deletionFails != 0 ? g_deletionFails
                                    : __real_RegDeleteKeyExW(key, path, view, reserved);
    }

    LONG __wrap_RegDeleteKeyW(HKEY key, const char16_t* path)
    {
        Record(path);
        g_without = true;
        return g_deletionFails != 0 ? g_deletionFails : __real_RegDeleteKeyW(key, path);
    }
}

namespace
{

class RegistryInside : public testing::Test
{
protected:
    void SetUp() override
    {
        g_recording = true;
        g_deleted.clear();
        qv::core::s_regDeleteKeyEx = &qv::platform::RegDeleteKeyExW;
    }
    void TearDown() override
    {
        qv::core::s_isNT = 1;
        qv::core::s_isWow64 = 0;
        g_recording = false;
        g_refused = nullptr;
        g_deletionFails = 0;
        for (const std::uint32_t root : kRoots) {
            QVRegistryDeleteKey(root, u"Key");
        }
    }

    static constexpr std::uint32_t kRoots[] = {0, 1, 2, 3, 4, 0x80000000, 0x80000001, 0x80000002};

    static QVRESULT Set(std::uint32_t root, std::uint32_t number)
    {
        return QVRegistrySetValue(root, u"Key", u"v", QV_REGTYPE_DWORD, &number, sizeof number);
    }

    // 0 if it is not there.
    static std::uint32_t Get(std::uint32_t root)
    {
        std::uint32_t number = 0;
        std::uint32_t size = sizeof number;
        return QVRegistryGetValue(root, u"Key", u"v", nullptr, &number, &size) < 0 ? 0 : number;
    }
};

// A digit for each tree: the roots with the same digit see the same key.
TEST_F(RegistryInside, ViewsOfTheRoots)
{
    const struct
    {
        std::int16_t isWow64;
        int trees[8]; // as kRoots
    } rows[] = {
        {0, {1, 2, 3, 1, 2, 1, 3, 2}},
        {1, {1, 2, 3, 4, 5, 4, 3, 5}},
    };
    for (const auto& row : rows) {
        qv::core::s_isWow64 = row.isWow64;
        for (std::size_t written = 0; written < std::size(kRoots); ++written) {
            ASSERT_EQ(Set(kRoots[written], 1), S_OK);
            for (std::size_t read = 0; read < std::size(kRoots); ++read) {
                EXPECT_EQ(Get(kRoots[read]) == 1, row.trees[read] == row.trees[written])
                    << row.isWow64 << ": " << kRoots[written] << ' ' << kRoots[read];
            }
            ASSERT_EQ(QVRegistryDeleteKey(kRoots[written], u"Key"), 0);
            EXPECT_EQ(Get(kRoots[written]), 0u);
        }
    }
}

TEST_F(RegistryInside, DeletesOneKeyOffTheNTFamily)
{
    ASSERT_EQ(QVRegistrySetValue(QV_HKEY_USER, u"Key\\Sub", u"", QV_REGTYPE_STRING, u"", 2), S_OK);
    qv::core::s_isNT = 0;
    EXPECT_EQ(QVRegistryDeleteKey(QV_HKEY_USER, u"Key"), E_FAIL) << "it has a sub-key";
    EXPECT_EQ(QVRegistryDeleteKey(QV_HKEY_USER, u"Missing"), E_FAIL);
    EXPECT_TRUE(g_without);
    EXPECT_EQ(QVRegistryDeleteKey(QV_HKEY_USER, u"Key\\Sub"), S_OK);
    EXPECT_EQ(QVRegistryDeleteKey(QV_HKEY_USER, u"Key"), S_OK);
    EXPECT_EQ(Set(QV_HKEY_USER, 1), S_OK) << "also without security attributes";
}

TEST_F(RegistryInside, DeletionGoesOnPastAKeyThatDoesNotOpen)
{
    for (const char16_t* const path : {u"Key\\a\\x", u"Key\\b\\x", u"Key\\c"}) {
        ASSERT_EQ(QVRegistrySetValue(QV_HKEY_USER, path, u"", QV_REGTYPE_STRING, u"", 2), S_OK);
    }
    g_refused = u"a";
    EXPECT_EQ(QVRegistryDeleteKey(QV_HKEY_USER, u"Key"), 5) << "a and Key still have sub-keys";
    const std::vector<std::u16string> order = {u"x", u"a", u"b", u"c", u"Key"};
    EXPECT_EQ(g_deleted, order);
    g_refused = nullptr;
    EXPECT_EQ(QVRegistryDeleteKey(QV_HKEY_USER, u"Key"), 0);
}

TEST_F(RegistryInside, DeletionGivesTheNativeNumbers)
{
    ASSERT_EQ(QVRegistrySetValue(QV_HKEY_USER, u"Key\\a", u"", QV_REGTYPE_STRING, u"", 2), S_OK);
    g_deletionFails = 1018;
    EXPECT_EQ(QVRegistryDeleteKey(QV_HKEY_USER, u"Key"), 1018);
}

// Types that others have written natively.
TEST_F(RegistryInside, NativeTypes)
{
    const struct
    {
        DWORD native;
        std::uint32_t read;
        std::uint32_t enumerated;
    } rows[] = {{0, 3, 77}, {1, 0, 0}, {2, 0, 0},  {3, 3, 3},   {4, 1, 1},           {5, 5, 77},
                {6, 6, 77}, {7, 5, 5}, {8, 8, 77}, {11, 2, 77}, {0xFFFF, 0xFFFF, 77}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.native);
        HKEY key = nullptr;
        ASSERT_EQ(Set(QV_HKEY_USER, 1), S_OK);
        ASSERT_EQ(__real_RegOpenKeyExW(qv::platform::PredefinedKey(0x80000001), u"Key", 0,
                                       qv::platform::KEY_ALL_ACCESS, &key),
                  0);
        ASSERT_EQ(qv::platform::RegSetValueExW(key, u"v", 0, row.native, u"x", 4), 0);
        qv::platform::RegCloseKey(key);
        std::uint32_t type = 77;
        QVWChar data[8];
        std::uint32_t size = sizeof data;
        EXPECT_EQ(QVRegistryGetValue(QV_HKEY_USER, u"Key", u"v", &type, data, &size), S_OK);
        EXPECT_EQ(type, row.read);
        QVRegEnum values;
        QVWChar name[8];
        std::uint32_t nameSize = 8;
        type = 77;
        ASSERT_EQ(QVRegistryOpenValueEnum(QV_HKEY_USER, u"Key", &values), S_OK);
        EXPECT_EQ(QVRegistryEnumNextValue(values, name, &nameSize, &type, nullptr, nullptr), S_OK);
        EXPECT_EQ(type, row.enumerated);
        QVRegistryCloseEnum(values);
    }
}

} // namespace
