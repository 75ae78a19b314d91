// The registry's calls: their error numbers, what handles stand for, and what LMDB's failures
// become.
#include <lmdb.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/registry_names.h"
#include "platform/store_fixture.h"

using namespace qv::test;

namespace
{

struct Fault
{
    const char* call = ""; // the one that fails, after so many that do not
    int result = 0;
    long spared = 0;
    bool once = false;
};

Fault g_fault;
int g_dead = 0; // readers that were killed, besides the real ones
bool g_sameHash = false;

template <class Call> int FaultOr(const char* name, Call call, MDB_txn* ended = nullptr)
{
    if (std::strcmp(g_fault.call, name) != 0 || g_fault.spared-- > 0) {
        return call();
    }
    mdb_txn_abort(ended);
    const int result = g_fault.result;
    g_fault = g_fault.once ? Fault{} : Fault{name, result};
    return result;
}

} // namespace

extern "C"
{
    decltype(mdb_txn_commit) __real_mdb_txn_commit;
    decltype(mdb_put) __real_mdb_put;
    decltype(mdb_get) __real_mdb_get;
    decltype(mdb_reader_check) __real_mdb_reader_check;
    void __real_HashFoldedName(const WCHAR* name, std::size_t units, unsigned char* hash);

    int __wrap_mdb_txn_commit(MDB_txn* transaction)
    {
        return FaultOr(
            "commit", [&] { return __real_mdb_txn_commit(transaction); }, transaction);
    }
    int __wrap_mdb_put(MDB_txn* transaction, MDB_dbi database, MDB_val* key, MDB_val* data,
                       unsigned flags)
    {
        return FaultOr("put",
                       [&] { return __real_mdb_put(transaction, database, key, data, flags); });
    }
    int __wrap_mdb_get(MDB_txn* transaction, MDB_dbi database, MDB_val* key, MDB_val* data)
    {
        return FaultOr("get", [&] { return __real_mdb_get(transaction, database, key, data); });
    }
    int __wrap_mdb_reader_check(MDB_env* environment, int* dead)
    {
        const int result = __real_mdb_reader_check(environment, dead);
        *dead += g_dead;
        return result;
    }
    void __wrap_HashFoldedName(const WCHAR* name, std::size_t units, unsigned char* hash)
    {
        __real_HashFoldedName(name, g_sameHash ? 0 : units, hash);
    }
}

namespace
{

class RegistryCalls : public StoreTest
{
protected:
    ~RegistryCalls() override
    {
        g_fault = {};
        g_dead = 0;
        g_sameHash = false;
    }
};

TEST_F(RegistryCalls, HandlesOutliveTheirKeysAndKeepTheirRights)
{
    HKEY opened = nullptr;
    std::uint32_t number = 1;
    ASSERT_EQ(SetNumber(u"a\\b", 1), 0);
    const Key reading(u"a", KEY_READ);
    EXPECT_EQ(RegSetValueExW(reading.handle, u"v", 0, REG_DWORD, &number, sizeof number), 5);
    EXPECT_EQ(RegDeleteKeyExW(reading.handle, u"", 0, 0), 5);
    const Key gone(u"a\\b");
    EXPECT_EQ(RegDeleteKeyExW(gone.handle, u"", 0, 0), 0) << "the handle's own key";
    EXPECT_EQ(RegOpenKeyExW(gone.handle, u"c", 0, KEY_READ, &opened), 1018);
    EXPECT_EQ(RegSetValueExW(gone.handle, u"v", 0, REG_DWORD, &number, sizeof number), 1018);
    EXPECT_EQ(RegOpenKeyExW(PredefinedKey(7), u"a", 0, KEY_READ, &opened), 6);
    // A name in the locale's charset, with a character beyond the first plane.
    setlocale(LC_ALL, "C.UTF-8");
    ASSERT_EQ(SetNumber(u"gr\u00FC \U0001F600", 1), 0);
    EXPECT_EQ(RegDeleteKeyA(PredefinedKey(HKEY_CURRENT_USER), "gr\xC3\xBC \xF0\x9F\x98\x80"), 0);
    EXPECT_EQ(RegDeleteKeyA(PredefinedKey(HKEY_CURRENT_USER), "gr\xC3"), 87);
}

// Long names of the same hash live side by side, also after one in the middle has gone.
TEST_F(RegistryCalls, NamesWithTheSameHash)
{
    g_sameHash = true;
    const auto name = [](int last) {
        return std::u16string(254, u'n') + static_cast<char16_t>(last);
    };
    for (const char16_t last : {u'a', u'b', u'c', u'd'}) {
        ASSERT_EQ(SetNumber(name(last), last), 0);
    }
    ASSERT_EQ(Delete(name(u'b')), 0);
    ASSERT_EQ(SetNumber(name(u'e'), u'e'), 0) << "into the gap";
    ASSERT_EQ(SetNumber(name(u'C'), u'C'), 0);
    EXPECT_EQ(GetNumber(name(u'A')), u'a');
    EXPECT_EQ(GetNumber(name(u'b')), -2);
    EXPECT_EQ(GetNumber(name(u'c')), u'C');
    EXPECT_EQ(GetNumber(name(u'D')), u'd');
    const Key key(u"values");
    for (int i = 0; i <= 256; ++i) {
        EXPECT_EQ(RegSetValueExW(key.handle, name(0x4E00 + i).c_str(), 0, 4, &i, sizeof i),
                  i < 256 ? 0 : 1450)
            << i;
    }
}

// What LMDB answers, as the calls give it on. Nothing of a failed change is seen, and the next call
// goes through.
TEST_F(RegistryCalls, FailuresOfTheStore)
{
    const std::pair<int, LONG> rows[] = {
        {ENOSPC, 112},        {EDQUOT, 112},         {MDB_MAP_FULL, 1450},
        {ENOMEM, 14},         {EIO, 1117},           {EROFS, 5},
        {EACCES, 5},          {MDB_CORRUPTED, 1015}, {MDB_PAGE_NOTFOUND, 1015},
        {MDB_PANIC, 1015},    {MDB_INVALID, 1015},   {MDB_VERSION_MISMATCH, 1015},
        {MDB_TXN_FULL, 1450}, {MDB_BAD_TXN, 31},     {MDB_MAP_RESIZED, 1450},
    };
    ASSERT_EQ(SetNumber(u"a\\b", 1), 0);
    for (const auto& [result, expected] : rows) {
        for (const char* const call : {"commit", "put", "get"}) {
            SCOPED_TRACE(testing::Message() << result << " of " << call);
            g_fault = {call, result};
            EXPECT_EQ(SetNumber(u"a\\b", 2), expected);
            EXPECT_EQ(SetNumber(u"a\\new", 2), expected);
            EXPECT_EQ(Delete(u"a\\b"), expected);
            EXPECT_EQ(GetNumber(u"a\\b"), call[0] == 'g' ? -expected : 1);
            g_fault = {};
            EXPECT_EQ(GetNumber(u"a\\b"), 1);
            EXPECT_EQ(GetNumber(u"a\\new"), -2);
        }
    }
    EXPECT_EQ(SetNumber(u"a\\b", 3), 0);
}

TEST_F(RegistryCalls, NothingStaysOfHalfAChange)
{
    for (const bool deletes : {false, true}) {
        bool failed = true;
        for (long n = 0; failed; ++n) {
            g_fault = {"put", ENOSPC, n, true};
            const LONG error = deletes ? Delete(u"x\\y") : SetNumber(u"x\\y", 1);
            failed = g_fault.result == 0;
            g_fault = {};
            EXPECT_EQ(error, failed ? 112 : 0);
            EXPECT_EQ(GetNumber(u"x\\y"), failed == deletes ? 1 : -2);
            if (failed && !deletes) { // the key and its value are two changes
                Delete(u"x\\y");
                Delete(u"x");
            }
            EXPECT_TRUE(failed || n >= (deletes ? 1 : 6));
        }
    }
}

// What killed readers held on to is given back before the store counts as full.
TEST_F(RegistryCalls, AFullStoreIsTriedOnceMore)
{
    ASSERT_EQ(SetNumber(u"a", 1), 0);
    const Fault once = {"put", MDB_MAP_FULL, 0, true};
    g_fault = once;
    EXPECT_EQ(SetNumber(u"a", 2), 1450) << "no reader was dead";
    g_dead = 1;
    g_fault = once;
    EXPECT_EQ(SetNumber(u"a", 2), 0);
    g_fault = {"put", MDB_MAP_FULL};
    EXPECT_EQ(SetNumber(u"a", 3), 1450) << "tried for ever";
}

} // namespace
