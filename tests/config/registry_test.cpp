// The registry functions through the shared library: results, sizes, names, trees.
#include <qvcore6/registry.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "config/fresh_state.h"

namespace
{

const qv::test::FreshState g_state; // before the first call

constexpr std::uint32_t kUser = QV_HKEY_USER;

QVRESULT SetText(const char16_t* key, const char16_t* name, std::u16string text,
                 std::uint32_t type = QV_REGTYPE_STRING)
{
    return QVRegistrySetValue(kUser, key, name, type, text.c_str(),
                              static_cast<std::uint32_t>((text.size() + 1) * 2));
}

struct Read
{
    QVRESULT result;
    std::uint32_t type;
    std::uint32_t size;
    std::vector<unsigned char> bytes; // as many as the capacity was

    std::u16string Text() const
    {
        std::u16string text(size / 2, u'\0');
        std::memcpy(text.data(), bytes.data(), text.size() * 2);
        return text;
    }
};

// Behind the capacity lie bytes that must not change.
Read Get(const char16_t* key, const char16_t* name, std::uint32_t capacity,
         std::uint32_t root = kUser)
{
    constexpr unsigned char kUntouched = 0xEE;
    std::vector<unsigned char> bytes(capacity + 16, kUntouched);
    Read read{0, 77, capacity, {}};
    read.result = QVRegistryGetValue(root, key, name, &read.type, bytes.data(), &read.size);
    for (std::size_t i = capacity; i < bytes.size(); ++i) {
        EXPECT_EQ(bytes[i], kUntouched) << "written behind the buffer at " << i - capacity;
    }
    bytes.resize(capacity);
    read.bytes = bytes;
    return read;
}

std::vector<std::u16string> SubKeys(const char16_t* key)
{
    std::vector<std::u16string> names;
    QVRegEnum keys;
    if (QVRegistryOpenKeyEnum(kUser, key, &keys) < 0) {
        return names;
    }
    QVWChar name[256];
    for (std::uint32_t size = 256; QVRegistryEnumNextKey(keys, name, &size) == S_OK; size = 256) {
        names.emplace_back(name, size);
    }
    QVRegistryCloseEnum(keys);
    return names;
}

TEST(Registry, MissingThings)
{
    std::uint32_t size = 4;
    std::uint32_t type = 77;
    std::uint32_t number = 5;
    QVRegEnum keys = nullptr;
    const char16_t* const key = u"Missing";
    const std::uint32_t wrong = 5;
    EXPECT_EQ(QVRegistryGetValue(kUser, key, u"v", &type, &number, &size), QV_E_FILE_NOT_FOUND);
    EXPECT_EQ(type, 77u);
    EXPECT_EQ(QVRegistryDeleteValue(kUser, key, u"v"), QV_E_FILE_NOT_FOUND);
    EXPECT_TRUE(SubKeys(u"").empty()) << "a deletion makes no key";
    EXPECT_EQ(QVRegistryDeleteKey(kUser, key), E_FAIL);
    EXPECT_EQ(QVRegistryDeleteKey(kUser, nullptr), E_FAIL);
    EXPECT_EQ(QVRegistryOpenKeyEnum(kUser, key, &keys), E_FAIL);
    EXPECT_EQ(keys, QV_REG_ENUM_NONE);
    keys = nullptr;
    EXPECT_EQ(QVRegistryOpenValueEnum(kUser, key, &keys), QV_E_FILE_NOT_FOUND);
    EXPECT_EQ(keys, QV_REG_ENUM_NONE);
    EXPECT_EQ(QVRegistryCloseEnum(nullptr), S_OK);

    EXPECT_EQ(QVRegistryGetValue(wrong, key, u"v", &type, &number, &size), E_HANDLE);
    EXPECT_EQ(QVRegistrySetValue(wrong, key, u"v", QV_REGTYPE_DWORD, &number, 4), E_HANDLE);
    EXPECT_EQ(QVRegistryDeleteValue(wrong, key, u"v"), E_HANDLE);
    EXPECT_EQ(QVRegistryDeleteKey(wrong, key), E_FAIL);
    EXPECT_EQ(QVRegistryOpenKeyEnum(wrong, key, &keys), E_FAIL);
    EXPECT_EQ(QVRegistryOpenValueEnum(wrong, key, &keys), E_HANDLE);

    ASSERT_EQ(SetText(u"There", u"v", u"x"), S_OK);
    EXPECT_EQ(Get(u"There", u"w", 4).result, QV_E_FILE_NOT_FOUND);
    EXPECT_EQ(QVRegistryDeleteValue(kUser, u"There", u"w"), QV_E_FILE_NOT_FOUND);
    EXPECT_EQ(QVRegistryDeleteValue(kUser, u"There", u"v"), S_OK);
    EXPECT_EQ(Get(u"There", u"v", 4).result, QV_E_FILE_NOT_FOUND);
    EXPECT_EQ(SubKeys(u""), std::vector<std::u16string>{u"There"});
}

TEST(Registry, TypesComeBackAsTheTableSays)
{
    const std::uint32_t kRefused = 0xFFFFFFFF;
    const struct
    {
        std::uint32_t written;
        std::uint32_t read;
    } rows[] = {{0, 0},        {1, 1},         {2, kRefused},         {3, 3}, {4, 0}, {5, 5},
                {6, kRefused}, {11, kRefused}, {0xFFFFFFFF, kRefused}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.written);
        const char16_t text[] = u"ab\0cd\0";
        const QVRESULT result =
            QVRegistrySetValue(kUser, u"Types", u"v", row.written, text, sizeof text);
        if (row.read == kRefused) {
            EXPECT_EQ(result, E_INVALIDARG);
            continue;
        }
        EXPECT_EQ(result, S_OK);
        EXPECT_EQ(Get(u"Types", u"v", 64).type, row.read);
        std::uint32_t type = 77;
        QVRegEnum values;
        QVWChar name[8];
        std::uint32_t nameSize = 8;
        ASSERT_EQ(QVRegistryOpenValueEnum(kUser, u"Types", &values), S_OK);
        EXPECT_EQ(QVRegistryEnumNextValue(values, name, &nameSize, &type, nullptr, nullptr), S_OK);
        EXPECT_EQ(type, row.read);
        QVRegistryCloseEnum(values);
    }
}

TEST(Registry, SizesOfData)
{
    const unsigned char data[] = {1, 2, 3, 4, 5}; // an odd size
    ASSERT_EQ(QVRegistrySetValue(kUser, u"Sizes", u"v", QV_REGTYPE_BINARY, data, 5), S_OK);
    for (const std::uint32_t capacity : {0u, 4u, 5u, 6u}) {
        SCOPED_TRACE(capacity);
        const Read read = Get(u"Sizes", u"v", capacity);
        EXPECT_EQ(read.result, capacity < 5 ? E_FAIL : S_OK);
        EXPECT_EQ(read.size, 5u);
        EXPECT_EQ(read.type, 3u);
        if (capacity >= 5) {
            EXPECT_EQ(std::memcmp(read.bytes.data(), data, 5), 0);
        }
    }
    std::uint32_t type = 77;
    std::uint32_t size = 0;
    char byte;
    EXPECT_EQ(QVRegistryGetValue(kUser, u"Sizes", u"v", &type, nullptr, &size), S_OK);
    EXPECT_EQ(type, 3u);
    EXPECT_EQ(size, 5u);
    EXPECT_EQ(QVRegistryGetValue(kUser, u"Sizes", u"v", nullptr, nullptr, nullptr), S_OK);
    EXPECT_EQ(QVRegistryGetValue(kUser, u"Sizes", u"v", &type, &byte, nullptr), E_FAIL);
    EXPECT_EQ(QVRegistrySetValue(kUser, u"Sizes", u"v", QV_REGTYPE_BINARY, nullptr, 1), E_FAIL);
    EXPECT_EQ(QVRegistrySetValue(kUser, u"Sizes", u"v", QV_REGTYPE_BINARY, nullptr, 0), S_OK);
    EXPECT_EQ(Get(u"Sizes", u"v", 0).result, S_OK);

    // More than the store can hold must fail and leave what was there.
    std::vector<unsigned char> large(5u << 20);
    std::generate(large.begin(), large.end(), [n = 0u]() mutable { return (n += 7) >> 3 & 0xFF; });
    const auto largeSize = static_cast<std::uint32_t>(large.size());
    ASSERT_EQ(QVRegistrySetValue(kUser, u"Sizes", u"v", 3, large.data(), largeSize), S_OK);
    EXPECT_EQ(QVRegistrySetValue(kUser, u"Sizes", u"v", 3, large.data(), 0xFFFFFFFF), E_FAIL);
    EXPECT_EQ(Get(u"Sizes", u"v", largeSize).bytes, large);
}

TEST(Registry, NamesCompareWithoutCaseAndKeepTheirForm)
{
    ASSERT_EQ(SetText(u"Nämes\\STRASSE\\ÄÖÜ", u"Größe", u"1"), S_OK);
    ASSERT_EQ(SetText(u"nÄMES\\strasse\\äöü", u"gRÖßE", u"2"), S_OK);
    EXPECT_EQ(Get(u"NÄMES\\Strasse\\äÖü", u"GRÖßE", 8).Text(), std::u16string(u"2\0", 2));
    EXPECT_EQ(SubKeys(u"NÄMES"), std::vector<std::u16string>{u"STRASSE"});
    EXPECT_EQ(Get(u"Nämes\\straße\\ÄÖÜ", u"Größe", 8).result, QV_E_FILE_NOT_FOUND);
    QVRegEnum values;
    QVWChar name[8];
    std::uint32_t size = 8;
    ASSERT_EQ(QVRegistryOpenValueEnum(kUser, u"nämes\\strasse\\äöü", &values), S_OK);
    EXPECT_EQ(QVRegistryEnumNextValue(values, name, &size, nullptr, nullptr, nullptr), S_OK);
    EXPECT_EQ(std::u16string(name, size), u"Größe");
    QVRegistryCloseEnum(values);
}

TEST(Registry, PathsAndLimitsOfNames)
{
    const std::u16string longest(255, u'k');
    const std::u16string tooLong(256, u'k');
    const char16_t surrogates[] = {0xDC00, u'x', 0xD800, 0xDFFF, 0xD800, 0};
    const struct
    {
        std::u16string path;
        QVRESULT set;
        QVRESULT get;
    } rows[] = {
        {u"\\P", E_FAIL, E_FAIL},
        {u"\\", E_FAIL, E_FAIL},
        {u"P\\\\Q", E_FAIL, E_FAIL},
        {u"P\\\\", E_FAIL, E_FAIL},
        {u"P\\Q\\", S_OK, S_OK},
        {u"", S_OK, S_OK},
        {u"P/\\/", S_OK, S_OK},
        {u"P\\" + longest, S_OK, S_OK},
        {u"P\\" + tooLong, E_FAIL, E_FAIL},
        {u"P\\" + tooLong + u"\\Q", E_FAIL, E_FAIL},
        {surrogates, S_OK, S_OK},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.path));
        EXPECT_EQ(SetText(row.path.c_str(), u"v", u"x"), row.set);
        EXPECT_EQ(Get(row.path.c_str(), u"v", 8).result, row.get);
        EXPECT_EQ(Get(row.path.c_str(), u"v", 8).result, row.get) << "the second time";
    }
    EXPECT_EQ(SubKeys(u"P\\Q"), std::vector<std::u16string>{}) << "one '\\' at the end is ignored";
    EXPECT_EQ(Get(u"P\\Q", u"v", 8).result, S_OK);

    // Around the length at which a record's key is cut, and at the limit.
    for (const std::size_t units : {219u, 220u, 221u, 1000u, 16383u}) {
        SCOPED_TRACE(units);
        std::u16string name(units, u'v');
        EXPECT_EQ(SetText(u"P", name.c_str(), u"first"), S_OK);
        name.back() = u'w';
        EXPECT_EQ(SetText(u"P", name.c_str(), u"other"), S_OK);
        std::transform(name.begin(), name.end(), name.begin(),
                       [](char16_t unit) { return static_cast<char16_t>(unit - 0x20); });
        EXPECT_EQ(Get(u"P", name.c_str(), 64).Text(), std::u16string(u"other\0", 6));
        EXPECT_EQ(QVRegistryDeleteValue(kUser, u"P", name.c_str()), S_OK);
        EXPECT_EQ(Get(u"P", name.c_str(), 64).result, QV_E_FILE_NOT_FOUND);
        name.assign(units, u'v');
        EXPECT_EQ(Get(u"P", name.c_str(), 64).Text(), std::u16string(u"first\0", 6));
    }
    const std::u16string name(16384, u'v');
    EXPECT_EQ(SetText(u"P", name.c_str(), u"x"), E_FAIL);
    EXPECT_EQ(Get(u"P", name.c_str(), 8).result, QV_E_FILE_NOT_FOUND);
    EXPECT_EQ(QVRegistryDeleteValue(kUser, u"P", name.c_str()), QV_E_FILE_NOT_FOUND);

    ASSERT_EQ(SetText(u"P", nullptr, u"default"), S_OK);
    EXPECT_EQ(Get(u"P", u"", 64).Text(), std::u16string(u"default\0", 8));
}

TEST(Registry, ExpandedText)
{
    setenv("QV_TEST_LONG", "0123456789", 1);
    setenv("QV_TEST_SHORT_VALUE_LONG_NAME", "x", 1);
    const struct
    {
        const char16_t* what;
        std::u16string stored; // bytes, with the terminator if there is one
        std::u16string expanded;
    } rows[] = {
        {u"longer", std::u16string(u"<%QV_TEST_LONG%>\0", 17), u"<0123456789>"},
        {u"other case", std::u16string(u"%qv_Test_long%\0", 15), u"0123456789"},
        {u"shorter", std::u16string(u"%QV_TEST_SHORT_VALUE_LONG_NAME%\0", 32), u"x"},
        {u"unknown", std::u16string(u"%QV_NONE%%\0", 11), u"%QV_NONE%%"},
        {u"not terminated", u"<%QV_TEST_LONG%>", u"<0123456789>"},
        {u"rest behind the end", std::u16string(u"a\0%QV_TEST_LONG%", 16), u"a"},
        {u"nothing", u"", u""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(std::u16string(row.what)));
        const auto stored = static_cast<std::uint32_t>(row.stored.size() * 2);
        const auto needed = static_cast<std::uint32_t>((row.expanded.size() + 1) * 2);
        const std::uint32_t both = std::max(stored, needed);
        ASSERT_EQ(QVRegistrySetValue(kUser, u"Expand", u"v", QV_REGTYPE_EXPAND_STRING,
                                     row.stored.data(), stored),
                  S_OK);
        for (const std::uint32_t capacity : {both, both + 1, both + 40}) {
            const Read read = Get(u"Expand", u"v", capacity);
            EXPECT_EQ(read.result, S_OK);
            EXPECT_EQ(read.type, 0u);
            EXPECT_EQ(read.size, needed);
            EXPECT_EQ(read.Text(), row.expanded + std::u16string(1, u'\0'));
        }
        std::uint32_t size = 0;
        std::uint32_t type = 77;
        EXPECT_EQ(QVRegistryGetValue(kUser, u"Expand", u"v", &type, nullptr, &size), S_OK);
        EXPECT_EQ(type, 0u);
        EXPECT_EQ(size, both) << "enough for a second call";
        for (std::uint32_t capacity = 0; capacity < both; ++capacity) {
            const Read read = Get(u"Expand", u"v", capacity);
            EXPECT_EQ(read.result, E_FAIL) << capacity;
            EXPECT_EQ(read.size, capacity < stored ? both : needed) << capacity;
            EXPECT_EQ(read.type, capacity < stored ? 2u : 0u) << capacity;
            if (capacity >= stored && capacity >= 2) {
                EXPECT_EQ(read.bytes[0] | read.bytes[1], 0) << "half a text must not be used";
            }
        }
    }
    // An odd size, at an odd address.
    unsigned char buffer[64] = {};
    std::uint32_t size = 63;
    ASSERT_EQ(QVRegistrySetValue(kUser, u"Expand", u"v", QV_REGTYPE_EXPAND_STRING, u"ab", 3), S_OK);
    EXPECT_EQ(QVRegistryGetValue(kUser, u"Expand", u"v", nullptr, buffer + 1, &size), S_OK);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(std::memcmp(buffer + 1, u"a", 4), 0);
}

TEST(Registry, EnumerationOfKeys)
{
    for (const char16_t* const path : {u"Enum\\b", u"Enum\\C", u"Enum\\a", u"Enum\\name"}) {
        ASSERT_EQ(SetText(path, u"v", u"x"), S_OK);
    }
    const std::vector<std::u16string> all = {u"a", u"b", u"C", u"name"};
    EXPECT_EQ(SubKeys(u"Enum"), all);

    QVRegEnum keys;
    QVWChar name[8] = u"untouch";
    std::uint32_t size = 1;
    ASSERT_EQ(QVRegistryOpenKeyEnum(kUser, u"Enum", &keys), S_OK);
    EXPECT_EQ(QVRegistryEnumNextKey(keys, name, &size), E_FAIL) << "no room for the terminator";
    EXPECT_EQ(size, 1u);
    EXPECT_EQ(name, std::u16string(u"untouch"));
    size = 2;
    EXPECT_EQ(QVRegistryEnumNextKey(keys, name, &size), S_OK) << "the one before was skipped";
    EXPECT_EQ(std::u16string(name, size), u"b");
    ASSERT_EQ(SetText(u"Enum\\aa", u"v", u"x"), S_OK); // moves the indices behind it
    size = 8;
    EXPECT_EQ(QVRegistryEnumNextKey(keys, name, &size), S_OK);
    EXPECT_EQ(std::u16string(name, size), u"b");
    ASSERT_EQ(QVRegistryDeleteKey(kUser, u"Enum\\aa"), 0);
    size = 8;
    EXPECT_EQ(QVRegistryEnumNextKey(keys, name, &size), S_OK);
    EXPECT_EQ(std::u16string(name, size), u"name");
    size = 8;
    EXPECT_EQ(QVRegistryEnumNextKey(keys, name, &size), E_FAIL) << "the end";
    EXPECT_EQ(QVRegistryCloseEnum(keys), S_OK);
}

TEST(Registry, EnumerationOfValues)
{
    ASSERT_EQ(SetText(u"Values", u"b", u"text"), S_OK);
    ASSERT_EQ(SetText(u"Values", u"", u"%PATH%", QV_REGTYPE_EXPAND_STRING), S_OK);
    const std::uint32_t number = 7;
    ASSERT_EQ(QVRegistrySetValue(kUser, u"Values", u"A", QV_REGTYPE_DWORD, &number, 4), S_OK);
    QVRegEnum values;
    QVWChar name[8];
    QVWChar data[8];
    std::uint32_t nameSize = 8;
    std::uint32_t type = 77;
    std::uint32_t size = sizeof data;
    ASSERT_EQ(QVRegistryOpenValueEnum(kUser, u"Values", &values), S_OK);
    EXPECT_EQ(QVRegistryEnumNextValue(values, name, &nameSize, &type, data, &size), S_OK);
    EXPECT_EQ(nameSize, 0u);
    EXPECT_EQ(type, 0u);
    EXPECT_EQ(data, std::u16string(u"%PATH%")) << "not expanded here";
    nameSize = 8;
    size = 3;
    EXPECT_EQ(QVRegistryEnumNextValue(values, name, &nameSize, &type, data, &size), E_FAIL);
    EXPECT_EQ(type, 1u) << "also without room";
    EXPECT_EQ(size, 4u);
    nameSize = 1;
    type = 77;
    EXPECT_EQ(QVRegistryEnumNextValue(values, name, &nameSize, &type, nullptr, nullptr), E_FAIL);
    EXPECT_EQ(nameSize, 1u);
    EXPECT_EQ(type, 77u);
    EXPECT_EQ(QVRegistryEnumNextValue(values, name, &nameSize, &type, nullptr, nullptr), E_FAIL);
    QVRegistryCloseEnum(values);
}

// More than is read ahead, while others write.
TEST(Registry, LongEnumerationIsExact)
{
    std::vector<std::u16string> expected;
    for (int i = 0; i < 1000; ++i) {
        std::string digits = std::to_string(10000 + i);
        std::u16string name(digits.begin(), digits.end());
        name += std::u16string(static_cast<std::size_t>(i % 240), u'N');
        ASSERT_EQ(SetText((u"Long\\" + name).c_str(), u"", u""), S_OK);
        expected.push_back(name);
    }
    EXPECT_EQ(SubKeys(u"Long"), expected);
    QVRegEnum keys;
    QVWChar name[256];
    std::uint32_t size = 256;
    std::size_t count = 0;
    ASSERT_EQ(QVRegistryOpenKeyEnum(kUser, u"Long", &keys), S_OK);
    for (; QVRegistryEnumNextKey(keys, name, &size) == S_OK; size = 256, ++count) {
        ASSERT_LT(count, expected.size());
        ASSERT_EQ(std::u16string(name, size), expected[count]);
        if (count % 7 == 0) {
            ASSERT_EQ(SetText(u"Elsewhere", u"v", name), S_OK);
        }
    }
    EXPECT_EQ(count, expected.size());
    QVRegistryCloseEnum(keys);
}

TEST(Registry, DeletesTrees)
{
    constexpr int kWide = 10000;
    constexpr int kDeep = 20000; // a call for each level would need more stack than there is
    std::u16string path = u"Tree";
    for (int i = 0; i < kWide; ++i) {
        const std::string digits = std::to_string(i);
        const std::u16string name = u"Tree\\" + std::u16string(digits.begin(), digits.begin() + 1) +
                                    u"\\" + std::u16string(digits.begin(), digits.end());
        ASSERT_EQ(SetText(name.c_str(), u"v", u"x"), S_OK);
    }
    for (int i = 0; i < kDeep; ++i) {
        path += u"\\deep";
    }
    ASSERT_EQ(SetText(path.c_str(), u"v", u"x"), S_OK);
    ASSERT_EQ(SetText((u"Tree\\" + std::u16string(255, u'n')).c_str(), u"v", u"x"), S_OK);
    ASSERT_EQ(SetText(u"TreeBeside", u"v", u"x"), S_OK);
    EXPECT_EQ(Get(path.c_str(), u"v", 8).result, S_OK);
    EXPECT_EQ(QVRegistryDeleteKey(kUser, u"Tree"), 0);
    EXPECT_EQ(Get(u"Tree\\1\\1", u"v", 8).result, QV_E_FILE_NOT_FOUND) << "no longer remembered";
    EXPECT_EQ(Get(path.c_str(), u"v", 8).result, QV_E_FILE_NOT_FOUND);
    EXPECT_EQ(QVRegistryDeleteKey(kUser, u"Tree"), E_FAIL);
    EXPECT_EQ(Get(u"TreeBeside", u"v", 8).result, S_OK);
    ASSERT_EQ(SetText(u"Tree\\1\\1", u"w", u"x"), S_OK);
    EXPECT_EQ(Get(u"Tree\\1\\1", u"v", 8).result, QV_E_FILE_NOT_FOUND) << "its values are gone";

    // A root is emptied and stays.
    ASSERT_EQ(QVRegistrySetValue(QV_HKEY_CLASSES, u"a\\b", u"v", QV_REGTYPE_STRING, u"", 2), S_OK);
    EXPECT_GT(QVRegistryDeleteKey(QV_HKEY_CLASSES, u""), 0);
    EXPECT_EQ(Get(u"a", u"v", 8, QV_HKEY_CLASSES).result, QV_E_FILE_NOT_FOUND);
    QVRegEnum keys;
    ASSERT_EQ(QVRegistryOpenKeyEnum(QV_HKEY_CLASSES, u"", &keys), S_OK);
    QVRegistryCloseEnum(keys);
}

TEST(Registry, EnumerationOfADeletedKeyEnds)
{
    ASSERT_EQ(SetText(u"Gone\\a", u"v", u"x"), S_OK);
    QVRegEnum keys;
    QVWChar name[8];
    std::uint32_t size = 8;
    ASSERT_EQ(QVRegistryOpenKeyEnum(kUser, u"Gone", &keys), S_OK);
    ASSERT_EQ(QVRegistryDeleteKey(kUser, u"Gone"), 0);
    ASSERT_EQ(SetText(u"Gone\\b", u"v", u"x"), S_OK) << "another key of that name";
    EXPECT_EQ(QVRegistryEnumNextKey(keys, name, &size), E_FAIL);
    QVRegistryCloseEnum(keys);
}

TEST(Registry, KeepsErrno)
{
    errno = 1234;
    EXPECT_EQ(SetText(u"Errno", u"v", u"%HOME%", QV_REGTYPE_EXPAND_STRING), S_OK);
    EXPECT_EQ(Get(u"Errno", u"v", 4096).result, S_OK);
    EXPECT_EQ(QVRegistryDeleteKey(kUser, u"Errno"), 0);
    EXPECT_EQ(errno, 1234);
}

} // namespace
