// Exhausted memory in each of the registry functions.
#include <qvcore6/registry.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "platform/registry_store.h"
#include "support/alloc_faults.h"

namespace
{

constexpr std::uint32_t kUser = QV_HKEY_USER;
const std::u16string kLongName(300, u'n');

QVRESULT Set(const char16_t* key, std::uint32_t type)
{
    const char16_t text[] = u"a text with %HOME% and %QV_NONE% in it";
    return QVRegistrySetValue(kUser, key, kLongName.c_str(), type, text, sizeof text);
}

QVRESULT Get()
{
    char16_t data[2000];
    std::uint32_t size = sizeof data;
    std::uint32_t type;
    return QVRegistryGetValue(kUser, u"Alloc\\A long name of a key", kLongName.c_str(), &type, data,
                              &size);
}

QVRESULT Ask()
{
    std::uint32_t size;
    return QVRegistryGetValue(kUser, u"Alloc\\A long name of a key", kLongName.c_str(), nullptr,
                              nullptr, &size);
}

using Open = QVRESULT (*)(std::uint32_t root, const QVWChar* key, QVRegEnum* handle);

QVRESULT WalkFrom(Open open)
{
    QVRegEnum handle;
    QVRESULT result = open(kUser, u"Alloc", &handle);
    if (result < 0) {
        EXPECT_EQ(handle, QV_REG_ENUM_NONE);
        return result;
    }
    QVWChar name[400];
    for (int i = 0; i < 3 && result >= 0; ++i) {
        std::uint32_t size = 400;
        result = open == &QVRegistryOpenKeyEnum
                     ? QVRegistryEnumNextKey(handle, name, &size)
                     : QVRegistryEnumNextValue(handle, name, &size, nullptr, nullptr, nullptr);
    }
    QVRegistryCloseEnum(handle);
    return result;
}

void Prepare()
{
    for (const char16_t* const key :
         {u"Alloc\\A long name of a key", u"Alloc\\Another long name", u"Alloc\\c\\d\\e"}) {
        ASSERT_EQ(Set(key, QV_REGTYPE_EXPAND_STRING), S_OK);
    }
    for (const char16_t* const name : {u"a", u"b", u"c"}) {
        ASSERT_EQ(QVRegistrySetValue(kUser, u"Alloc", name, QV_REGTYPE_STRING, u"", 2), S_OK);
    }
}

TEST(RegistryAlloc, EveryFunction)
{
    const struct
    {
        const char* name;
        std::function<QVRESULT()> call;
        bool allocates;
    } rows[] = {
        {"get, expanded", &Get, true},
        {"ask for the size", &Ask, true},
        {"set", [] { return Set(u"Alloc\\A long name of a key", QV_REGTYPE_EXPAND_STRING); }, true},
        {"enumerate keys", [] { return WalkFrom(&QVRegistryOpenKeyEnum); }, true},
        {"enumerate values", [] { return WalkFrom(&QVRegistryOpenValueEnum); }, true},
        {"delete a value", [] { return QVRegistryDeleteValue(kUser, u"Alloc", u"a"); }, false},
        {"delete a key", [] { return QVRegistryDeleteKey(kUser, u"Alloc"); }, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        QVRESULT result = S_OK;
        long before = 0;
        Prepare();
        const auto call = [&] {
            before = qv::test::LiveBlocks();
            result = row.call();
        };
        const long failures = qv::test::SweepAllocations(call, [&](long n, bool failed) {
            EXPECT_EQ(qv::test::LiveBlocks(), before) << n;
            // Without memory to read ahead an enumeration goes on without.
            EXPECT_TRUE(failed ? result == E_OUTOFMEMORY || result == S_OK : result == S_OK)
                << n << ": " << result;
            Prepare();
        });
        EXPECT_EQ(failures > 0, row.allocates);
    }
    QVRegistryDeleteKey(kUser, u"Alloc");
}

// The store is opened within the call.
TEST(RegistryAlloc, FirstCall)
{
    Prepare();
    QVRESULT result = S_OK;
    const auto call = [&result] {
        qv::platform::CloseRegistryStores();
        result = Get();
    };
    const long failures = qv::test::SweepAllocations(call, [&result](long n, bool failed) {
        EXPECT_EQ(result, failed ? E_OUTOFMEMORY : S_OK) << n;
        EXPECT_EQ(Get(), S_OK) << n << ": the next call tries again";
    });
    EXPECT_GT(failures, 0);
    QVRegistryDeleteKey(kUser, u"Alloc");
}

} // namespace
