// What depends on facts of the platform, which the tests set here, and on calls and allocations
// that fail.
#include <qvcore6/registry.h>

#include <gtest/gtest.h>
#include <lmdb.h>

#include <cerrno>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "config/fresh_state.h"
#include "frame/facts.h"
#include "platform/registry_store.h"
#include "support/alloc_faults.h"

using qv::platform::DWORD;
using qv::platform::HKEY;
using qv::platform::LONG;

namespace
{

const char16_t* g_unopened = nullptr; // the name of a key that does not open
long g_spared = -1;                   // calls of the store before one that is refused

} // namespace

extern "C"
{
    LONG __real_RegOpenKeyExW(HKEY key, const char16_t* path, DWORD options, DWORD access,
                              HKEY* opened);
    int __real_mdb_get(MDB_txn* transaction, MDB_dbi database, MDB_val* key, MDB_val* data);

    LONG __wrap_RegOpenKeyExW(HKEY key, const char16_t* path, DWORD options, DWORD access,
                              HKEY* opened)
    {
        const bool isRefused = g_unopened != nullptr && std::u16string_view(path) == g_unopened;
        return isRefused ? 5 : __real_RegOpenKeyExW(key, path, options, access, opened);
    }
    int __wrap_mdb_get(MDB_txn* transaction, MDB_dbi database, MDB_val* key, MDB_val* data)
    {
        const bool isRefused = g_spared >= 0 && g_spared-- == 0;
        return isRefused ? EACCES : __real_mdb_get(transaction, database, key, data);
    }
}

namespace
{

const qv::test::FreshState g_state;

constexpr std::uint32_t kUser = QV_HKEY_USER;

QVRESULT Set(const std::u16string& key, std::uint32_t root = kUser)
{
    return QVRegistrySetValue(root, key.c_str(), u"v", QV_REGTYPE_STRING, u"", 2);
}

// A digit for each tree: the roots with the same digit see the same key.
TEST(RegistryInside, ViewsOfTheRoots)
{
    const struct
    {
        std::uint32_t root;
        int trees[2]; // with one view and with two
    } rows[] = {{0, {1, 1}}, {1, {2, 2}},          {2, {3, 3}},          {3, {1, 4}},
                {4, {2, 5}}, {0x80000000, {1, 4}}, {0x80000001, {3, 3}}, {0x80000002, {2, 5}}};
    for (const int view : {0, 1}) {
        qv::core::s_isWow64 = static_cast<std::int16_t>(view);
        for (const auto& written : rows) {
            ASSERT_EQ(Set(u"Key", written.root), S_OK);
            for (const auto& read : rows) {
                EXPECT_EQ(QVRegistryGetValue(read.root, u"Key", u"v", nullptr, nullptr, nullptr),
                          read.trees[view] == written.trees[view] ? S_OK : QV_E_FILE_NOT_FOUND)
                    << view << ": " << written.root << ' ' << read.root;
            }
            ASSERT_EQ(QVRegistryDeleteKey(written.root, u"Key"), 0);
        }
    }
    qv::core::s_isWow64 = 0;
}

std::vector<std::u16string> g_deleted;

// Refuses keys named x.
LONG DeleteSome(HKEY key, const char16_t* path, DWORD view, DWORD reserved)
{
    g_deleted.emplace_back(path);
    return g_deleted.back() == u"x" ? 1018
                                    : qv::platform::RegDeleteKeyExW(key, path, view, reserved);
}

TEST(RegistryInside, DeletionOfKeys)
{
    for (const char16_t* const path : {u"Key\\a\\x", u"Key\\b\\y", u"Key\\c"}) {
        ASSERT_EQ(Set(path), S_OK);
    }
    qv::core::s_isNT = 0;
    EXPECT_EQ(QVRegistryDeleteKey(kUser, u"Key"), E_FAIL) << "it has sub-keys";
    EXPECT_EQ(QVRegistryDeleteKey(kUser, u"Key\\c"), S_OK);
    EXPECT_EQ(Set(u"Key\\d"), S_OK);
    qv::core::s_isNT = 1;
    const struct
    {
        const char16_t* unopened;
        const char16_t* path;
        QVRESULT result;
        std::vector<std::u16string> deleted; // one level after the other, the deepest first
    } rows[] = {
        // What fails below a level shows there only as a key that still has sub-keys.
        {u"b", u"Key", 5, {u"x", u"a", u"b", u"d", u"Key"}},
        {nullptr, u"Key\\a", 1018 | 5, {u"x", u"Key\\a"}},
        {nullptr, u"Key", 5, {u"x", u"y", u"a", u"b", u"Key"}},
    };
    const auto saved = std::exchange(qv::core::s_regDeleteKeyEx, &DeleteSome);
    for (const auto& row : rows) {
        g_unopened = row.unopened;
        g_deleted.clear();
        EXPECT_EQ(QVRegistryDeleteKey(kUser, row.path), row.result);
        EXPECT_EQ(g_deleted, row.deleted);
    }
    qv::core::s_regDeleteKeyEx = saved;
    EXPECT_EQ(QVRegistryDeleteKey(kUser, u"Key"), 0);
}

// Types that others have written natively.
TEST(RegistryInside, NativeTypes)
{
    const struct
    {
        DWORD native;
        std::uint32_t read;
        std::uint32_t enumerated;
    } rows[] = {{0, 3, 77}, {1, 0, 0}, {2, 0, 0},  {3, 3, 3},   {4, 1, 1},           {5, 5, 77},
                {6, 6, 77}, {7, 5, 5}, {8, 8, 77}, {11, 2, 77}, {0xFFFF, 0xFFFF, 77}};
    HKEY key = nullptr;
    ASSERT_EQ(Set(u"Key"), S_OK);
    ASSERT_EQ(qv::platform::RegOpenKeyExW(qv::platform::PredefinedKey(0x80000001), u"Key", 0,
                                          qv::platform::KEY_ALL_ACCESS, &key),
              0);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.native);
        ASSERT_EQ(qv::platform::RegSetValueExW(key, u"v", 0, row.native, u"x", 4), 0);
        std::uint32_t type = 77;
        QVWChar text[8];
        std::uint32_t size = sizeof text;
        EXPECT_EQ(QVRegistryGetValue(kUser, u"Key", u"v", &type, text, &size), S_OK);
        EXPECT_EQ(type, row.read);
        QVRegEnum values;
        size = 8;
        type = 77;
        ASSERT_EQ(QVRegistryOpenValueEnum(kUser, u"Key", &values), S_OK);
        EXPECT_EQ(QVRegistryEnumNextValue(values, text, &size, &type, nullptr, nullptr), S_OK);
        EXPECT_EQ(type, row.enumerated);
        QVRegistryCloseEnum(values);
    }
    qv::platform::RegCloseKey(key);
}

constexpr const char16_t* kPath = u"Key\\A long name of a key";
const std::u16string kLongName(300, u'n');

QVRESULT SetLong()
{
    const char16_t text[] = u"a text with %HOME% and %QV_NONE% in it";
    return QVRegistrySetValue(kUser, kPath, kLongName.c_str(), QV_REGTYPE_EXPAND_STRING, text,
                              sizeof text);
}

// Null: asks for the size.
QVRESULT GetLong(void* data)
{
    std::uint32_t size = 4000;
    return QVRegistryGetValue(kUser, kPath, kLongName.c_str(), nullptr, data, &size);
}

QVRESULT OpenStoreAndGet()
{
    char data[4000];
    qv::platform::CloseRegistryStores();
    return GetLong(data);
}

QVRESULT Walk(QVRESULT (*open)(std::uint32_t root, const QVWChar* key, QVRegEnum* handle))
{
    QVRegEnum handle;
    QVWChar name[400];
    QVRESULT result = open(kUser, u"Key", &handle);
    for (int i = 0; i < 2 && result >= 0; ++i) { // the second time names are read ahead
        std::uint32_t size = 400;
        result = open == &QVRegistryOpenKeyEnum
                     ? QVRegistryEnumNextKey(handle, name, &size)
                     : QVRegistryEnumNextValue(handle, name, &size, nullptr, nullptr, nullptr);
    }
    QVRegistryCloseEnum(handle != QV_REG_ENUM_NONE ? handle : nullptr);
    return result;
}

// Each allocation fails in its turn, then each look at the store.
TEST(RegistryInside, FailuresInEachCall)
{
    const struct
    {
        const char* name;
        std::function<QVRESULT()> call;
        bool allocates;
        bool mayGoOn; // without names read ahead, an exact size, a sub-key that does not open
        QVRESULT denied;
    } rows[] = {
        {"get", &OpenStoreAndGet, true, false, E_ACCESSDENIED},
        {"size", [] { return GetLong(nullptr); }, true, true, E_ACCESSDENIED},
        {"set", &SetLong, true, false, E_ACCESSDENIED},
        {"keys", [] { return Walk(&QVRegistryOpenKeyEnum); }, true, true, E_FAIL},
        {"values", [] { return Walk(&QVRegistryOpenValueEnum); }, true, false, E_ACCESSDENIED},
        {"delete a value", [] { return QVRegistryDeleteValue(kUser, u"Key", u"v"); }, false, false,
         E_ACCESSDENIED},
        {"delete a key", [] { return QVRegistryDeleteKey(kUser, u"Key"); }, true, true, E_FAIL},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        QVRESULT result = S_OK;
        long before = 0;
        const auto prepare = [] {
            EXPECT_EQ(Set(u"Key") | Set(u"Key\\b") | SetLong(), S_OK);
            EXPECT_EQ(QVRegistrySetValue(kUser, u"Key", u"w", QV_REGTYPE_STRING, u"", 2), S_OK);
        };
        const auto call = [&] {
            before = qv::test::LiveBlocks();
            result = row.call();
        };
        const auto check = [&](long n, QVRESULT expected) {
            EXPECT_LE(qv::test::LiveBlocks(), before) << n;
            const bool wentOn = row.mayGoOn && (result == S_OK || result == 5);
            EXPECT_TRUE(wentOn || result == expected) << n << ' ' << result;
            prepare();
        };
        prepare();
        const long failures = qv::test::SweepAllocations(
            call, [&](long n, bool failed) { check(n, failed ? E_OUTOFMEMORY : S_OK); });
        EXPECT_EQ(failures > 0, row.allocates);
        long n = 0;
        for (bool failed = true; failed; ++n) {
            g_spared = n;
            call();
            failed = std::exchange(g_spared, -1) < 0;
            check(n, failed ? row.denied : S_OK);
        }
        EXPECT_GT(n, 1);
    }
}

} // namespace
