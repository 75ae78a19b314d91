// The registry functions: results, sizes, names, trees, and allocations that fail.
#include <qvcore6/registry.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "config/fresh_state.h"
#include "frame/facts.h"
#include "platform/registry_store.h"
#include "support/alloc_faults.h"

using namespace qv::platform;

namespace
{

const qv::test::FreshState g_state; // before the first call

constexpr std::uint32_t kUser = QV_HKEY_USER;
using Names = std::vector<std::u16string>;

QVRESULT Set(const std::u16string& key, const char16_t* name = u"v",
             const std::u16string& text = u"x", std::uint32_t type = QV_REGTYPE_STRING,
             std::uint32_t root = kUser)
{
    return QVRegistrySetValue(root, key.c_str(), name, type, text.c_str(),
                              static_cast<std::uint32_t>((text.size() + 1) * 2));
}

std::string Bytes(const std::u16string& text)
{
    return {reinterpret_cast<const char*>(text.data()), text.size() * 2};
}

struct Read
{
    QVRESULT result;
    std::uint32_t type;
    std::uint32_t size;
    std::string bytes; // as many as the capacity was
};

// At an odd address. Behind the capacity lie bytes that must not change.
Read Get(const std::u16string& key, const char16_t* name, std::uint32_t capacity = 64)
{
    const std::string behind(16, '\xEE');
    std::string bytes = std::string(capacity + 1, '\xEE') + behind;
    Read read = {E_FAIL, 77, capacity, {}};
    errno = 1234;
    read.result = QVRegistryGetValue(kUser, key.c_str(), name, &read.type, &bytes[1], &read.size);
    EXPECT_EQ(errno, 1234);
    EXPECT_TRUE(bytes.ends_with(behind)) << "written behind the buffer";
    read.bytes = bytes.substr(1, capacity);
    return read;
}

// Others write elsewhere meanwhile.
Names SubKeys(const char16_t* key)
{
    Names names;
    QVRegEnum keys;
    EXPECT_EQ(QVRegistryOpenKeyEnum(kUser, key, &keys), S_OK);
    QVWChar name[256];
    for (std::uint32_t size = 256; QVRegistryEnumNextKey(keys, name, &size) == S_OK; size = 256) {
        names.emplace_back(name, size);
        EXPECT_EQ(names.size() % 7 == 0 ? Set(u"Elsewhere", u"v", names.back()) : S_OK, S_OK);
    }
    EXPECT_EQ(QVRegistryCloseEnum(keys), S_OK);
    return names;
}

TEST(Registry, MissingThings)
{
    ASSERT_EQ(Set(u"There"), S_OK);
    constexpr QVRESULT kNone = QV_E_FILE_NOT_FOUND;
    const std::tuple<std::uint32_t, const char16_t*, std::vector<QVRESULT>> rows[] = {
        {kUser, u"Missing", {kNone, kNone, E_FAIL, kNone, E_FAIL}},
        {kUser, u"There", {kNone, kNone, S_OK, S_OK, 0}},
        {5, u"There", {E_HANDLE, E_HANDLE, E_FAIL, E_HANDLE, E_FAIL}},
    };
    for (const auto& [root, key, expected] : rows) {
        QVRegEnum enums[2];
        const std::vector results = {
            QVRegistryGetValue(root, key, u"w", nullptr, nullptr, nullptr),
            QVRegistryDeleteValue(root, key, u"w"), QVRegistryOpenKeyEnum(root, key, &enums[0]),
            QVRegistryOpenValueEnum(root, key, &enums[1]), QVRegistryDeleteKey(root, key)};
        EXPECT_EQ(results, expected);
        for (QVRegEnum made : enums) {
            EXPECT_EQ(made == QV_REG_ENUM_NONE, expected[2] < 0);
            QVRegistryCloseEnum(made != QV_REG_ENUM_NONE ? made : nullptr);
        }
    }
    EXPECT_EQ(QVRegistrySetValue(5, u"There", u"v", QV_REGTYPE_DWORD, rows, 4), E_HANDLE);
    EXPECT_EQ(QVRegistryDeleteKey(kUser, nullptr), E_FAIL);
    EXPECT_EQ(Get(u"Missing", u"v").type, 77u);
    EXPECT_EQ(SubKeys(u""), Names{}) << "a failed call makes no key";
}

TEST(Registry, TypesAndSizesOfData)
{
    for (const std::uint32_t type : {0u, 1u, 3u, 4u, 5u, 2u, 6u, 11u, 0xFFFFFFFFu}) {
        const bool isKnown = type < 6 && type != 2;
        EXPECT_EQ(Set(u"Sizes", u"v", u"x", type), isKnown ? S_OK : E_INVALIDARG);
        EXPECT_EQ(Get(u"Sizes", u"v").type, type == 4 ? 0 : isKnown ? type : 5);
    }
    // More than the store can hold must fail and leave what was there.
    std::string data((5u << 20) + 1, '\0');
    std::generate(data.begin(), data.end(), [n = 0]() mutable { return char((n += 7) >> 3); });
    const auto all = static_cast<std::uint32_t>(data.size());
    ASSERT_EQ(QVRegistrySetValue(kUser, u"Sizes", u"v", 3, data.data(), all), S_OK);
    EXPECT_EQ(QVRegistrySetValue(kUser, u"Sizes", u"v", 3, data.data(), 0xFFFFFFFF), E_FAIL);
    for (const std::uint32_t capacity : {0u, all - 1, all, all + 1}) {
        const Read read = Get(u"Sizes", u"v", capacity);
        EXPECT_EQ(std::tuple(read.result, read.size, read.type),
                  std::tuple(capacity < all ? E_FAIL : S_OK, all, 3u));
        EXPECT_TRUE(capacity < all || read.bytes.starts_with(data));
    }
    EXPECT_EQ(QVRegistryGetValue(kUser, u"Sizes", u"v", nullptr, &data[0], nullptr), E_FAIL);
    EXPECT_EQ(QVRegistrySetValue(kUser, u"Sizes", u"v", QV_REGTYPE_BINARY, nullptr, 1), E_FAIL);
    EXPECT_EQ(QVRegistrySetValue(kUser, u"Sizes", u"v", QV_REGTYPE_BINARY, nullptr, 0), S_OK);
    EXPECT_EQ(Get(u"Sizes", u"v", 0).result, S_OK);
}

TEST(Registry, PathsAndNames)
{
    const std::u16string longest(255, u'k');
    const char16_t surrogates[] = {0xDC00, u'x', 0xD800, 0xDFFF, 0xD800, 0};
    const std::pair<std::u16string, QVRESULT> rows[] = {
        {u"\\", E_FAIL},          {u"P\\\\", E_FAIL},
        {u"\\P", E_FAIL},         {u"P\\\\Q", E_FAIL},
        {u"P\\Q\\", S_OK},        {u"", S_OK},
        {u"P\\" + longest, S_OK}, {u"P\\" + longest + u"k\\Q", E_FAIL},
        {surrogates, S_OK},       {u"P\\STRASSE\\\u00C4", S_OK},
    };
    for (const auto& [path, result] : rows) {
        SCOPED_TRACE(testing::PrintToString(path));
        EXPECT_EQ(Set(path), result);
        EXPECT_EQ(Get(path, u"V").result, result);
        EXPECT_EQ(Get(path, u"V").result, result) << "the second time";
    }
    EXPECT_EQ(Set(u"p\\strasse\\\u00E4", nullptr, u"default"), S_OK);
    EXPECT_TRUE(Get(u"P\\Strasse\\\u00C4", u"").bytes.starts_with(Bytes(u"default")));
    EXPECT_EQ(SubKeys(u"P"), (Names{longest, u"Q", u"STRASSE"})) << "as first written";

    // Around the length at which a record's key is cut, and at the limit.
    for (const std::size_t units : {219u, 220u, 221u, 16383u, 16384u}) {
        const bool fits = units < 16384;
        const std::u16string first(units, u'v');
        const std::u16string other = first.substr(1) + u'w';
        const std::u16string upper = std::u16string(units - 1, u'V') + u'W';
        EXPECT_EQ(Set(u"P", first.c_str()), fits ? S_OK : E_FAIL);
        EXPECT_EQ(Set(u"P", other.c_str()), fits ? S_OK : E_FAIL);
        EXPECT_EQ(QVRegistryDeleteValue(kUser, u"P", upper.c_str()) == S_OK, fits) << units;
        EXPECT_EQ(Get(u"P", other.c_str()).result, QV_E_FILE_NOT_FOUND);
        EXPECT_EQ(Get(u"P", first.c_str()).result == S_OK, fits);
    }
}

TEST(Registry, ExpandedText)
{
    setenv("QV_TEST_LONG", "0123456789", 1);
    setenv("QV_TEST_SHORT_VALUE_LONG_NAME", "x", 1);
    setenv("QV_TEST_SHORT_VALUE_long_name", "y\xFF", 1);
    const std::u16string end(1, u'\0');
    const std::pair<std::u16string, std::u16string> rows[] = {
        {u"<%qv_Test_long%>" + end, u"<0123456789>"},
        {u"%QV_TEST_SHORT_VALUE_LONG_NAME%" + end, u"x"},
        {u"%QV_NONE%%QV_TEST_SHORT_VALUE_long_name%% %", u"%QV_NONE%y\xDCFF% %"},
        {u"a" + end + u"%QV_TEST_LONG%", u"a"},
        {u"", u""},
    };
    for (std::uint32_t i = 0; i < 2 * std::size(rows); ++i) {
        const auto& [text, expanded] = rows[i / 2];
        const auto stored = static_cast<std::uint32_t>(text.size() * 2) + i % 2; // half a unit more
        const auto needed = static_cast<std::uint32_t>((expanded.size() + 1) * 2);
        const std::uint32_t both = std::max(stored, needed);
        ASSERT_EQ(QVRegistrySetValue(kUser, u"Expand", u"v", QV_REGTYPE_EXPAND_STRING, text.data(),
                                     stored),
                  S_OK);
        std::uint32_t size = 0;
        EXPECT_EQ(QVRegistryGetValue(kUser, u"Expand", u"v", nullptr, nullptr, &size), S_OK);
        EXPECT_EQ(size, both) << "enough for a second call";
        for (std::uint32_t capacity = 0; capacity < both + 3; ++capacity) {
            const Read read = Get(u"Expand", u"v", capacity);
            EXPECT_EQ(read.result, capacity < both ? E_FAIL : S_OK) << i << " in " << capacity;
            EXPECT_EQ(read.size, capacity < stored ? both : needed);
            EXPECT_EQ(read.type, capacity < stored ? 2u : 0u);
            const std::u16string seen = capacity < both ? u"" : expanded;
            EXPECT_TRUE(capacity < std::max(stored, 2u) ||
                        read.bytes.starts_with(Bytes(seen + end)))
                << "half a text must not be used";
        }
    }
}

TEST(Registry, EnumerationOfKeysThatChange)
{
    ASSERT_EQ(Set(u"Enum\\b") | Set(u"Enum\\C") | Set(u"Enum\\a"), S_OK);
    QVRegEnum keys;
    ASSERT_EQ(QVRegistryOpenKeyEnum(kUser, u"Enum", &keys), S_OK);
    QVWChar name[8] = u"nothing";
    const auto next = [&](std::uint32_t size) {
        const QVRESULT result = QVRegistryEnumNextKey(keys, name, &size);
        return result == S_OK ? std::u16string(name, size) : u"failed";
    };
    EXPECT_EQ(next(1), u"failed") << "no room for the terminator";
    EXPECT_EQ(name, std::u16string(u"nothing"));
    EXPECT_EQ(next(2), u"b") << "the one before was skipped";
    ASSERT_EQ(Set(u"Enum\\aa"), S_OK); // moves the indices behind it
    EXPECT_EQ(next(8), u"b");
    ASSERT_EQ(QVRegistryDeleteKey(kUser, u"Enum"), 0);
    ASSERT_EQ(Set(u"Enum\\a\\b"), S_OK) << "another key of that name";
    EXPECT_EQ(next(8), u"failed");
    QVRegistryCloseEnum(keys);
}

TEST(Registry, EnumerationOfValues)
{
    ASSERT_EQ(Set(u"Values", u"Long", u"", QV_REGTYPE_DWORD), S_OK);
    ASSERT_EQ(Set(u"Values", u"LONG", u"%PATH%", QV_REGTYPE_EXPAND_STRING), S_OK);
    for (auto [nameSize, size] : {std::pair{5u, 14u}, {5u, 13u}, {4u, 14u}}) {
        const bool nameFits = nameSize == 5;
        const bool fits = nameFits && size == 14;
        QVRegEnum values;
        QVWChar name[8] = u"nothing";
        QVWChar data[8] = u"nothing";
        std::uint32_t type = 77;
        ASSERT_EQ(QVRegistryOpenValueEnum(kUser, u"Values", &values), S_OK);
        EXPECT_EQ(QVRegistryEnumNextValue(values, name, &nameSize, &type, data, &size),
                  fits ? S_OK : E_FAIL);
        EXPECT_EQ(name, std::u16string(nameFits ? u"Long" : u"nothing")) << "as first written";
        EXPECT_EQ(data, std::u16string(fits ? u"%PATH%" : u"nothing"));
        EXPECT_EQ(std::tuple(type, nameSize, size), std::tuple(nameFits ? 0u : 77u, 4u, 14u));
        QVRegistryCloseEnum(values);
    }
}

TEST(Registry, EnumeratesAndDeletesTrees)
{
    std::u16string path = u"Tree";
    Names expected;
    for (char16_t i = 0; i < 10000; ++i) {
        const auto name = char16_t(0x4E00 + i) + std::u16string(i % 240, u'N');
        ASSERT_EQ(Set(u"Tree\\a\\" + name), S_OK);
        expected.push_back(name);
    }
    EXPECT_EQ(SubKeys(u"Tree\\a"), expected) << "more than is read ahead";
    for (int i = 0; i < 20000; ++i) { // a call for each level would need more stack than there is
        path += u"\\deep";
    }
    ASSERT_EQ(Set(path) | Set(u"TreeBeside"), S_OK);
    EXPECT_EQ(Get(path, u"v").result, S_OK);
    EXPECT_EQ(QVRegistryDeleteKey(kUser, u"Tree"), 0);
    EXPECT_EQ(Get(path, u"v").result, QV_E_FILE_NOT_FOUND) << "no longer remembered";
    EXPECT_EQ(Get(u"TreeBeside", u"v").result, S_OK);
    ASSERT_EQ(Set(u"Tree\\a", u"w", u"x"), S_OK);
    EXPECT_EQ(SubKeys(u"Tree\\a"), Names{}) << "what was below is gone";

    EXPECT_GT(QVRegistryDeleteKey(kUser, u""), 0) << "a root is emptied and stays";
    EXPECT_EQ(SubKeys(u""), Names{});
    EXPECT_EQ(Set(u"After"), S_OK);
}

TEST(Registry, ViewsOfTheRoots)
{
    constexpr std::uint32_t rows[][3] = {// a root, its tree with one view and with two
                                         {0, 1, 1},          {1, 2, 2},         {2, 3, 3},
                                         {3, 1, 4},          {4, 2, 5},         {0x80000000, 1, 4},
                                         {0x80000001, 3, 3}, {0x80000002, 2, 5}};
    for (const int view : {1, 2}) {
        qv::core::s_isWow64 = view == 2;
        for (const auto& written : rows) {
            ASSERT_EQ(Set(u"Key", u"v", u"x", QV_REGTYPE_STRING, written[0]), S_OK);
            for (const auto& read : rows) {
                EXPECT_EQ(QVRegistryGetValue(read[0], u"Key", u"v", nullptr, nullptr, nullptr),
                          read[view] == written[view] ? S_OK : QV_E_FILE_NOT_FOUND)
                    << written[0] << ' ' << read[0];
            }
            ASSERT_EQ(QVRegistryDeleteKey(written[0], u"Key"), 0);
        }
    }
    qv::core::s_isWow64 = 0;
}

Names g_deleted;

// Refuses keys named x.
LONG DeleteSome(HKEY key, const char16_t* path, std::uint32_t view, std::uint32_t reserved)
{
    g_deleted.emplace_back(path);
    return g_deleted.back() == u"x" ? 1018 : RegDeleteKeyExW(key, path, view, reserved);
}

TEST(Registry, DeletionOfKeys)
{
    ASSERT_EQ(Set(u"Key\\a\\x") | Set(u"Key\\b\\y") | Set(u"Key\\c"), S_OK);
    qv::core::s_isNT = 0;
    EXPECT_EQ(QVRegistryDeleteKey(kUser, u"Key"), E_FAIL) << "it has sub-keys";
    EXPECT_EQ(QVRegistryDeleteKey(kUser, u"Key\\c"), S_OK);
    EXPECT_EQ(Set(u"Key\\d"), S_OK);
    qv::core::s_isNT = 1;
    // One level after the other, the deepest first. What fails below a level shows there only as a
    // key that still has sub-keys.
    const auto saved = std::exchange(qv::core::s_regDeleteKeyEx, &DeleteSome);
    EXPECT_EQ(QVRegistryDeleteKey(kUser, u"Key"), 5);
    EXPECT_EQ(std::exchange(g_deleted, {}), (Names{u"x", u"y", u"a", u"b", u"d", u"Key"}));
    EXPECT_EQ(QVRegistryDeleteKey(kUser, u"Key\\a"), 1018 | 5);
    EXPECT_EQ(g_deleted, (Names{u"x", u"Key\\a"}));
    qv::core::s_regDeleteKeyEx = saved;
    EXPECT_EQ(QVRegistryDeleteKey(kUser, u"Key"), 0);
}

// Types that others have written natively.
TEST(Registry, NativeTypes)
{
    constexpr std::uint32_t rows[][3] = {{0, 3, 77}, {1, 0, 0},   {2, 0, 0},           {3, 3, 3},
                                         {4, 1, 1},  {5, 5, 77},  {6, 6, 77},          {7, 5, 5},
                                         {8, 8, 77}, {11, 2, 77}, {0xFFFF, 0xFFFF, 77}};
    HKEY key = nullptr;
    ASSERT_EQ(Set(u"Key"), S_OK);
    ASSERT_EQ(RegOpenKeyExW(PredefinedKey(0x80000001), u"Key", 0, KEY_ALL_ACCESS, &key), 0);
    for (const auto& [native, read, enumerated] : rows) {
        ASSERT_EQ(RegSetValueExW(key, u"v", 0, native, u"x", 4), 0);
        std::uint32_t type = 77;
        QVWChar text[8];
        std::uint32_t size = sizeof text;
        EXPECT_EQ(QVRegistryGetValue(kUser, u"Key", u"v", &type, text, &size), S_OK);
        EXPECT_EQ(type, read) << native;
        QVRegEnum values;
        ASSERT_EQ(QVRegistryOpenValueEnum(kUser, u"Key", &values), S_OK);
        size = 8;
        type = 77;
        EXPECT_EQ(QVRegistryEnumNextValue(values, text, &size, &type, nullptr, nullptr), S_OK);
        EXPECT_EQ(type, enumerated) << native;
        QVRegistryCloseEnum(values);
    }
    RegCloseKey(key);
}

const std::u16string kLongName(300, u'n');

QVRESULT SetLong()
{
    constexpr char16_t text[] = u"a text with %HOME% and %QV_NONE% in it";
    return QVRegistrySetValue(kUser, u"Key", kLongName.c_str(), QV_REGTYPE_EXPAND_STRING, text,
                              sizeof text);
}

QVRESULT GetLong(bool sizeOnly)
{
    char data[4000];
    std::uint32_t size = sizeof data;
    return QVRegistryGetValue(kUser, u"Key", kLongName.c_str(), nullptr, sizeOnly ? nullptr : data,
                              &size);
}

QVRESULT Walk(decltype(&QVRegistryOpenKeyEnum) open)
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

TEST(Registry, FailingAllocations)
{
    // Some may go on without names read ahead, an exact size, or a sub-key that does not open.
    const std::pair<std::function<QVRESULT()>, bool> rows[] = {
        {[] { return CloseRegistryStores(), GetLong(false); }, false},
        {[] { return GetLong(true); }, true},
        {&SetLong, false},
        {[] { return Walk(&QVRegistryOpenKeyEnum); }, true},
        {[] { return Walk(&QVRegistryOpenValueEnum); }, false},
        {[] { return QVRegistryDeleteKey(kUser, u"Key"); }, true},
    };
    const auto prepare = [] {
        EXPECT_EQ(Set(u"Key\\b") | Set(u"Key\\A long name of a key") | Set(u"Key") | SetLong(),
                  S_OK);
    };
    for (const auto& row : rows) {
        QVRESULT result = S_OK;
        long before = 0;
        const auto call = [&] {
            before = qv::test::LiveBlocks();
            result = row.first();
        };
        const auto check = [&](long n, bool failed) {
            EXPECT_LE(qv::test::LiveBlocks(), before) << &row - rows << ' ' << n;
            const bool wentOn = row.second && (result == S_OK || result == 5);
            EXPECT_TRUE(wentOn || result == (failed ? E_OUTOFMEMORY : S_OK))
                << &row - rows << ' ' << n << ' ' << result;
            prepare();
        };
        prepare();
        EXPECT_GT(qv::test::SweepAllocations(call, check), 0);
    }
}

} // namespace
