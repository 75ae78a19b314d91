// The registry's calls: their error numbers, what handles stand for, and what LMDB's failures
// become.
#include <lmdb.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <vector>

#include "platform/registry_names.h"
#include "platform/store_fixture.h"

using namespace qv::platform;
using namespace qv::test;

namespace
{

struct Fault
{
    int result = 0; // 0: none
    long countdown = 0;
    bool once = false;

    bool Now()
    {
        if (result == 0 || --countdown > 0) {
            return false;
        }
        if (once) {
            const int answer = result;
            *this = {};
            last = answer;
        } else {
            last = result;
        }
        return true;
    }
    int last = 0;
};

Fault g_commit;
Fault g_put;
Fault g_write; // begin of a write transaction
Fault g_get;
int g_dead = 0; // what the check for dead readers says
bool g_sameHash = false;

} // namespace

extern "C"
{
    int __real_mdb_txn_commit(MDB_txn* transaction);
    int __real_mdb_put(MDB_txn* transaction, MDB_dbi database, MDB_val* key, MDB_val* data,
                       unsigned flags);
    int __real_mdb_get(MDB_txn* transaction, MDB_dbi database, MDB_val* key, MDB_val* data);
    int __real_mdb_txn_begin(MDB_env* environment, MDB_txn* parent, unsigned flags,
                             MDB_txn** transaction);
    int __real_mdb_reader_check(MDB_env* environment, int* dead);
    void __real_HashFoldedName(const WCHAR* name, std::size_t units, unsigned char* hash);

    int __wrap_mdb_txn_commit(MDB_txn* transaction)
    {
        if (g_commit.Now()) {
            mdb_txn_abort(transaction);
            return g_commit.last;
        }
        return __real_mdb_txn_commit(transaction);
    }
    int __wrap_mdb_put(MDB_txn* transaction, MDB_dbi database, MDB_val* key, MDB_val* data,
                       unsigned flags)
    {
        return g_put.Now() ? g_put.last : __real_mdb_put(transaction, database, key, data, flags);
    }
    int __wrap_mdb_get(MDB_txn* transaction, MDB_dbi database, MDB_val* key, MDB_val* data)
    {
        return g_get.Now() ? g_get.last : __real_mdb_get(transaction, database, key, data);
    }
    int __wrap_mdb_txn_begin(MDB_env* environment, MDB_txn* parent, unsigned flags,
                             MDB_txn** transaction)
    {
        if ((flags & MDB_RDONLY) == 0 && g_write.Now()) {
            return g_write.last;
        }
        return __real_mdb_txn_begin(environment, parent, flags, transaction);
    }
    int __wrap_mdb_reader_check(MDB_env* environment, int* dead)
    {
        const int result = __real_mdb_reader_check(environment, dead);
        *dead += g_dead;
        return result;
    }
    void __wrap_HashFoldedName(const WCHAR* name, std::size_t units, unsigned char* hash)
    {
        if (g_sameHash) {
            std::memset(hash, 0x11, kNameHashSize);
        } else {
            __real_HashFoldedName(name, units, hash);
        }
    }
}

namespace
{

class RegistryCalls : public StoreTest
{
protected:
    ~RegistryCalls() override
    {
        g_commit = g_put = g_write = g_get = {};
        g_dead = 0;
        g_sameHash = false;
    }
};

TEST_F(RegistryCalls, ErrorNumbersOfHandlesAndPaths)
{
    HKEY key = nullptr;
    const HKEY machine = PredefinedKey(kMachineRoot);
    const HKEY none = reinterpret_cast<HKEY>(~std::uintptr_t{0});
    const auto open = [&](HKEY base, const char16_t* path, DWORD access) {
        return RegOpenKeyExW(base, path, 0, access, &key);
    };
    for (const HKEY wrong : {none, PredefinedKey(0), PredefinedKey(0x80000003),
                             PredefinedKey(0x80000005), PredefinedKey(7)}) {
        EXPECT_EQ(open(wrong, u"a", KEY_READ), 6);
        EXPECT_EQ(RegCloseKey(wrong), 6);
        EXPECT_EQ(RegQueryValueExW(wrong, u"v", nullptr, nullptr, nullptr, nullptr), 6);
        EXPECT_EQ(RegSetValueExW(wrong, u"v", 0, 1, "", 0), 6);
        EXPECT_EQ(RegDeleteValueW(wrong, u"v"), 6);
        EXPECT_EQ(RegDeleteKeyExW(wrong, u"v", 0, 0), 6);
    }
    EXPECT_EQ(RegCloseKey(machine), 0);
    EXPECT_EQ(open(machine, u"a", KEY_READ), 2);
    EXPECT_EQ(open(machine, u"\\a", KEY_READ), 161);
    EXPECT_EQ(open(machine, u"a\\\\b", KEY_READ), 161);
    EXPECT_EQ(open(machine, std::u16string(256, u'a').c_str(), KEY_READ), 87);
    EXPECT_EQ(open(machine, u"", KEY_READ | KEY_WOW64_32KEY | KEY_WOW64_64KEY), 87);
    EXPECT_EQ(RegOpenKeyExW(machine, u"", 0, KEY_READ, nullptr), 87);
    ASSERT_EQ(open(machine, nullptr, KEY_READ), 0);
    EXPECT_EQ(RegSetValueExW(key, u"v", 0, 1, "", 0), 5) << "opened for reading";
    EXPECT_EQ(RegDeleteValueW(key, u"v"), 5);
    HKEY child;
    EXPECT_EQ(RegCreateKeyExW(key, u"x", 0, nullptr, 0, KEY_READ, nullptr, &child, nullptr), 5);
    EXPECT_EQ(RegDeleteKeyExW(key, u"", 0, 0), 5) << "a handle of a predefined key";
    EXPECT_EQ(RegCloseKey(key), 0);
    EXPECT_EQ(RegCloseKey(key), 6) << "twice";

    EXPECT_EQ(RegDeleteKeyExW(machine, nullptr, 0, 0), 87);
    EXPECT_EQ(RegDeleteKeyExW(machine, u"", 0, 0), 5);
    EXPECT_EQ(RegDeleteKeyW(machine, u"a"), 2);
    EXPECT_EQ(RegDeleteKeyA(machine, nullptr), 87);
}

TEST_F(RegistryCalls, CreatesAndDeletes)
{
    const HKEY user = PredefinedKey(kUserRoot);
    HKEY key = nullptr;
    DWORD disposition = 0;
    ASSERT_EQ(RegCreateKeyExW(user, u"a\\b\\c", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key,
                              &disposition),
              0);
    EXPECT_EQ(disposition, REG_CREATED_NEW_KEY);
    RegCloseKey(key);
    ASSERT_EQ(
        RegCreateKeyExW(user, u"A\\b", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, &disposition),
        0);
    EXPECT_EQ(disposition, REG_OPENED_EXISTING_KEY);
    EXPECT_EQ(RegDeleteKeyExW(user, u"a\\b", 0, 0), 5) << "it has a sub-key";
    EXPECT_EQ(RegDeleteKeyA(key, "c"), 0);
    EXPECT_EQ(RegDeleteKeyExW(key, u"", 0, 0), 0) << "the handle's own key";

    WCHAR name[8];
    DWORD size = 8;
    std::uint32_t number = 0;
    HKEY child;
    EXPECT_EQ(RegSetValueExW(key, u"v", 0, 4, &number, 4), 1018);
    EXPECT_EQ(RegDeleteValueW(key, u"v"), 1018);
    EXPECT_EQ(RegQueryValueExW(key, u"v", nullptr, nullptr, nullptr, nullptr), 1018);
    EXPECT_EQ(RegEnumKeyExW(key, 0, name, &size, nullptr, nullptr, nullptr, nullptr), 1018);
    EXPECT_EQ(RegEnumValueW(key, 0, name, &size, nullptr, nullptr, nullptr, nullptr), 1018);
    EXPECT_EQ(RegOpenKeyExW(key, u"", 0, KEY_READ, &child), 1018);
    EXPECT_EQ(RegOpenKeyExW(key, u"c", 0, KEY_READ, &child), 1018);
    EXPECT_EQ(RegDeleteKeyExW(key, u"", 0, 0), 1018);
    EXPECT_EQ(RegCreateKeyExW(key, u"x", 0, nullptr, 0, KEY_READ, nullptr, &child, nullptr), 1018);
    RegCloseKey(key);
}

// A name in the locale's charset, with a character beyond the first plane and one that is none.
TEST_F(RegistryCalls, DeletesByNarrowName)
{
    setlocale(LC_ALL, "C.UTF-8");
    ASSERT_EQ(SetNumber(u"gr\u00FC\u00DFe \U0001F600", 1), 0);
    EXPECT_EQ(RegDeleteKeyA(PredefinedKey(kUserRoot), "gr\xC3\xBC\xC3\x9F"
                                                      "e \xF0\x9F\x98\x80"),
              0);
    EXPECT_EQ(RegDeleteKeyA(PredefinedKey(kUserRoot), "gr\xFF"), 87);
    EXPECT_EQ(RegDeleteKeyA(PredefinedKey(kUserRoot), "gr\xC3"), 87);
}

TEST_F(RegistryCalls, EnumerationIsExactAtEveryIndex)
{
    for (const char16_t* const path : {u"k\\d", u"k\\b", u"k\\a", u"k\\c"}) {
        ASSERT_EQ(SetNumber(path, 1), 0);
    }
    Key key;
    ASSERT_EQ(key.Open(kUserRoot, u"k"), 0);
    const auto at = [&key](DWORD index) {
        WCHAR name[8];
        DWORD size = 8;
        FILETIME time = {};
        const LONG error =
            RegEnumKeyExW(key.Get(), index, name, &size, nullptr, nullptr, nullptr, &time);
        EXPECT_EQ(error == 0, time.dwHighDateTime != 0);
        return error == 0 ? name[0] : static_cast<WCHAR>(error);
    };
    const auto ahead = [&key](DWORD index) { // without a time, names are read ahead
        WCHAR name[8];
        DWORD size = 8;
        const LONG error =
            RegEnumKeyExW(key.Get(), index, name, &size, nullptr, nullptr, nullptr, nullptr);
        return error == 0 ? name[0] : static_cast<WCHAR>(error);
    };
    for (const DWORD index : {0u, 1u, 2u, 3u, 4u, 2u, 2u, 0u, 3u, 1u, 9u, 2u}) {
        const WCHAR expected = index < 4 ? static_cast<WCHAR>(u'a' + index) : WCHAR{259};
        EXPECT_EQ(at(index), expected) << index;
        EXPECT_EQ(ahead(index), expected) << index;
    }
    EXPECT_EQ(ahead(0), u'a');
    EXPECT_EQ(ahead(1), u'b');
    ASSERT_EQ(RegDeleteKeyExW(key.Get(), u"b", 0, 0), 0);
    EXPECT_EQ(ahead(2), u'd') << "what was read ahead no longer holds";
    WCHAR name[8];
    DWORD size = 1;
    EXPECT_EQ(RegEnumKeyExW(key.Get(), 0, name, &size, nullptr, nullptr, nullptr, nullptr), 234);
    EXPECT_EQ(size, 1u);
    EXPECT_EQ(RegEnumKeyExW(key.Get(), 0, nullptr, &size, nullptr, nullptr, nullptr, nullptr), 87);
    EXPECT_EQ(RegEnumValueW(key.Get(), 0, name, nullptr, nullptr, nullptr, nullptr, nullptr), 87);
    Key writer;
    ASSERT_EQ(writer.Open(kUserRoot, u"k", KEY_SET_VALUE), 0);
    EXPECT_EQ(RegEnumKeyExW(writer.Get(), 0, name, &size, nullptr, nullptr, nullptr, nullptr), 5);
    EXPECT_EQ(RegEnumValueW(writer.Get(), 0, name, &size, nullptr, nullptr, nullptr, nullptr), 5);
    EXPECT_EQ(RegQueryValueExW(writer.Get(), u"v", nullptr, nullptr, nullptr, nullptr), 5);
}

// Long names of the same hash live side by side, also after one in the middle has gone.
TEST_F(RegistryCalls, NamesWithTheSameHash)
{
    g_sameHash = true;
    const auto name = [](char16_t last, std::size_t units) {
        return std::u16string(units - 1, u'n') + last;
    };
    for (const std::size_t units : {230u, 255u}) {
        for (const char16_t last : {u'a', u'b', u'c', u'd'}) {
            ASSERT_EQ(SetNumber(name(last, units).c_str(), last), 0);
        }
        std::uint32_t number = 0;
        const HKEY user = PredefinedKey(kUserRoot);
        ASSERT_EQ(RegDeleteKeyExW(user, name(u'b', units).c_str(), 0, 0), 0);
        EXPECT_EQ(GetNumber(name(u'b', units).c_str(), &number), 2);
        EXPECT_EQ(GetNumber(name(u'D', units).c_str(), &number), 0);
        EXPECT_EQ(number, std::uint32_t{u'd'});
        ASSERT_EQ(SetNumber(name(u'e', units).c_str(), u'e'), 0) << "into the gap";
        ASSERT_EQ(SetNumber(name(u'c', units).c_str(), u'C'), 0);
        EXPECT_EQ(GetNumber(name(u'c', units).c_str(), &number), 0);
        EXPECT_EQ(number, std::uint32_t{u'C'});
    }
    Key key;
    ASSERT_EQ(key.Create(kUserRoot, u"values"), 0);
    for (int i = 0; i <= 256; ++i) {
        const std::u16string value = name(static_cast<char16_t>(0x4E00 + i), 300);
        EXPECT_EQ(RegSetValueExW(key.Get(), value.c_str(), 0, 4, &i, sizeof i), i < 256 ? 0 : 1450)
            << i;
    }
}

// What LMDB answers, as the calls give it on. Nothing of a failed change is seen, and the next call
// goes through.
TEST_F(RegistryCalls, FailuresOfTheStore)
{
    const struct
    {
        int result;
        LONG error;
    } rows[] = {
        {ENOSPC, 112},        {EDQUOT, 112},         {MDB_MAP_FULL, 1450},
        {ENOMEM, 14},         {EIO, 1117},           {EROFS, 5},
        {EACCES, 5},          {MDB_CORRUPTED, 1015}, {MDB_PAGE_NOTFOUND, 1015},
        {MDB_PANIC, 1015},    {MDB_INVALID, 1015},   {MDB_VERSION_MISMATCH, 1015},
        {MDB_TXN_FULL, 1450}, {MDB_BAD_TXN, 31},     {MDB_MAP_RESIZED, 1450},
    };
    ASSERT_EQ(SetNumber(u"a\\b", 1), 0);
    std::uint32_t number = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.result);
        for (Fault* const fault : {&g_commit, &g_put, &g_write, &g_get}) {
            fault->result = row.result;
            EXPECT_EQ(SetNumber(u"a\\b", 2), row.error);
            EXPECT_EQ(SetNumber(u"a\\new", 2), row.error);
            EXPECT_EQ(RegDeleteKeyExW(PredefinedKey(kUserRoot), u"a\\b", 0, 0), row.error);
            if (fault == &g_get) {
                EXPECT_EQ(GetNumber(u"a\\b", &number), row.error);
            }
            *fault = {};
            EXPECT_EQ(GetNumber(u"a\\b", &number), 0);
            EXPECT_EQ(number, 1u);
            EXPECT_EQ(GetNumber(u"a\\new", &number), 2);
        }
    }
    EXPECT_EQ(SetNumber(u"a\\b", 3), 0);
}

// Each step of a change fails in its turn: before the commit, nothing of it may stay.
TEST_F(RegistryCalls, EachWriteOfAChangeFails)
{
    ASSERT_EQ(SetNumber(u"there", 1), 0);
    std::uint32_t number = 0;
    long steps = 0;
    for (long n = 1;; ++n) {
        g_put = {ENOSPC, n, true};
        const LONG error = SetNumber(u"x\\y", 1);
        const bool failed = g_put.result == 0;
        g_put = {};
        if (!failed) {
            EXPECT_EQ(error, 0);
            break;
        }
        steps = n;
        EXPECT_EQ(error, 112);
        Key key;
        // Making the key and setting its value are two changes.
        EXPECT_EQ(GetNumber(u"x\\y", &number), 2);
        RegDeleteKeyExW(PredefinedKey(kUserRoot), u"x\\y", 0, 0);
        RegDeleteKeyExW(PredefinedKey(kUserRoot), u"x", 0, 0);
    }
    EXPECT_GE(steps, 6);
    for (long n = 1;; ++n) {
        g_put = {ENOSPC, n, true};
        const LONG error = RegDeleteKeyExW(PredefinedKey(kUserRoot), u"x\\y", 0, 0);
        const bool failed = g_put.result == 0;
        g_put = {};
        EXPECT_EQ(error, failed ? 112 : 0);
        EXPECT_EQ(GetNumber(u"x\\y", &number), failed ? 0 : 2);
        if (!failed) {
            break;
        }
    }
}

// What killed readers held on to is given back before the store counts as full.
TEST_F(RegistryCalls, AFullStoreIsTriedOnceMore)
{
    ASSERT_EQ(SetNumber(u"a", 1), 0);
    g_put = {MDB_MAP_FULL, 1, true};
    EXPECT_EQ(SetNumber(u"a", 2), 1450) << "no reader was dead";
    g_dead = 1;
    g_put = {MDB_MAP_FULL, 1, true};
    EXPECT_EQ(SetNumber(u"a", 2), 0);
    g_put = {MDB_MAP_FULL, 1, false};
    EXPECT_EQ(SetNumber(u"a", 3), 1450) << "tried for ever";
}

} // namespace
