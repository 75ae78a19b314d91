// The registry functions through the shared library: results, sizes, names, trees.
#include <qvcore6/registry.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "config/fresh_state.h"

namespace
{

const qv::test::FreshState g_state; // before the first call

constexpr std::uint32_t kUser = QV_HKEY_USER;
using Names = std::vector<std::u16string>;

QVRESULT SetText(const std::u16string& key, const char16_t* name, const std::u16string& text,
                 std::uint32_t type = QV_REGTYPE_STRING)
{
    errno = 1234;
    const QVRESULT result = QVRegistrySetValue(kUser, key.c_str(), name, type, text.c_str(),
                                               static_cast<std::uint32_t>((text.size() + 1) * 2));
    EXPECT_EQ(errno, 1234);
    return result;
}

struct Read
{
    QVRESULT result = 0;
    std::uint32_t type = 77;
    std::uint32_t size = 0;
    std::vector<unsigned char> bytes; // as many as the capacity was

    std::u16string Text() const // without the terminator
    {
        std::u16string text(result == S_OK ? size / 2 : 0, u'?');
        std::memcpy(text.data(), bytes.data(), text.size() * 2);
        if (text.empty() || text.back() != u'\0') {
            return u"not terminated";
        }
        text.pop_back();
        return text;
    }
};

// Behind the capacity lie bytes that must not change.
Read Get(const std::u16string& key, const char16_t* name, std::uint32_t capacity = 64)
{
    constexpr unsigned char kUntouched = 0xEE;
    std::vector<unsigned char> bytes(capacity + 16, kUntouched);
    Read read;
    read.size = capacity;
    errno = 1234;
    read.result =
        QVRegistryGetValue(kUser, key.c_str(), name, &read.type, bytes.data(), &read.size);
    EXPECT_EQ(errno, 1234);
    EXPECT_EQ(std::count(bytes.begin() + capacity, bytes.end(), kUntouched), 16)
        << "written behind the buffer";
    bytes.resize(capacity);
    read.bytes = bytes;
    return read;
}

// With a call in between after each name.
Names SubKeys(const char16_t* key, const std::function<void(const std::u16string&)>& between = {})
{
    Names names;
    QVRegEnum keys;
    if (QVRegistryOpenKeyEnum(kUser, key, &keys) < 0) {
        return names;
    }
    QVWChar name[256];
    for (std::uint32_t size = 256; QVRegistryEnumNextKey(keys, name, &size) == S_OK; size = 256) {
        names.emplace_back(name, size);
        if (between) {
            between(names.back());
        }
    }
    EXPECT_EQ(QVRegistryCloseEnum(keys), S_OK);
    return names;
}

TEST(Registry, MissingThings)
{
    ASSERT_EQ(SetText(u"There", u"v", u"x"), S_OK);
    const struct
    {
        std::uint32_t root;
        const char16_t* key;
        QVRESULT value, keys, values, deletedKey;
    } rows[] = {
        {kUser, u"Missing", QV_E_FILE_NOT_FOUND, E_FAIL, QV_E_FILE_NOT_FOUND, E_FAIL},
        {kUser, u"There", QV_E_FILE_NOT_FOUND, S_OK, S_OK, 0},
        {5, u"There", E_HANDLE, E_FAIL, E_HANDLE, E_FAIL},
    };
    for (const auto& row : rows) {
        std::uint32_t size = 4;
        QVRegEnum keys = nullptr;
        QVRegEnum values = nullptr;
        EXPECT_EQ(QVRegistryGetValue(row.root, row.key, u"w", nullptr, &size, &size), row.value);
        EXPECT_EQ(QVRegistryDeleteValue(row.root, row.key, u"w"), row.value);
        EXPECT_EQ(QVRegistryOpenKeyEnum(row.root, row.key, &keys), row.keys);
        EXPECT_EQ(QVRegistryOpenValueEnum(row.root, row.key, &values), row.values);
        EXPECT_EQ(keys == QV_REG_ENUM_NONE, row.keys < 0);
        EXPECT_EQ(values == QV_REG_ENUM_NONE, row.values < 0);
        if (row.keys == S_OK) {
            QVRegistryCloseEnum(keys);
            QVRegistryCloseEnum(values);
        }
        EXPECT_EQ(QVRegistryDeleteKey(row.root, row.key), row.deletedKey);
    }
    EXPECT_EQ(QVRegistrySetValue(5, u"There", u"v", QV_REGTYPE_DWORD, rows, 4), E_HANDLE);
    EXPECT_EQ(QVRegistryDeleteKey(kUser, nullptr), E_FAIL);
    EXPECT_EQ(QVRegistryCloseEnum(nullptr), S_OK);
    EXPECT_EQ(Get(u"Missing", u"v").type, 77u);
    EXPECT_EQ(SubKeys(u""), Names{}) << "a failed call makes no key";
}

TEST(Registry, TypesAndSizesOfData)
{
    for (const std::uint32_t type : {0u, 1u, 3u, 4u, 5u}) {
        EXPECT_EQ(SetText(u"Sizes", u"v", u"x", type), S_OK);
        EXPECT_EQ(Get(u"Sizes", u"v").type, type == 4 ? 0 : type);
    }
    for (const std::uint32_t refused : {2u, 6u, 11u, 0xFFFFFFFFu}) {
        EXPECT_EQ(SetText(u"Sizes", u"v", u"x", refused), E_INVALIDARG) << refused;
    }
    // More than the store can hold must fail and leave what was there.
    std::vector<unsigned char> data((5u << 20) + 1);
    std::generate(data.begin(), data.end(), [n = 0u]() mutable { return (n += 7) >> 3 & 0xFF; });
    const auto all = static_cast<std::uint32_t>(data.size());
    ASSERT_EQ(QVRegistrySetValue(kUser, u"Sizes", u"v", 3, data.data(), all), S_OK);
    EXPECT_EQ(QVRegistrySetValue(kUser, u"Sizes", u"v", 3, data.data(), 0xFFFFFFFF), E_FAIL);
    for (const std::uint32_t capacity : {0u, all - 1, all, all + 1}) {
        SCOPED_TRACE(capacity);
        const Read read = Get(u"Sizes", u"v", capacity);
        EXPECT_EQ(read.result, capacity < all ? E_FAIL : S_OK);
        EXPECT_EQ(read.size, all);
        EXPECT_EQ(read.type, 3u);
        EXPECT_TRUE(capacity < all || std::equal(data.begin(), data.end(), read.bytes.begin()));
    }
    std::uint32_t size = 0;
    EXPECT_EQ(QVRegistryGetValue(kUser, u"Sizes", u"v", nullptr, nullptr, &size), S_OK);
    EXPECT_EQ(size, all);
    EXPECT_EQ(QVRegistryGetValue(kUser, u"Sizes", u"v", nullptr, &size, nullptr), E_FAIL);
    EXPECT_EQ(QVRegistrySetValue(kUser, u"Sizes", u"v", QV_REGTYPE_BINARY, nullptr, 1), E_FAIL);
    EXPECT_EQ(QVRegistrySetValue(kUser, u"Sizes", u"v", QV_REGTYPE_BINARY, nullptr, 0), S_OK);
    EXPECT_EQ(Get(u"Sizes", u"v", 0).result, S_OK);
}

TEST(Registry, PathsAndNames)
{
    const std::u16string longest(255, u'k');
    const char16_t surrogates[] = {0xDC00, u'x', 0xD800, 0xDFFF, 0xD800, 0};
    const struct
    {
        std::u16string path;
        QVRESULT result;
    } rows[] = {
        {u"\\", E_FAIL},          {u"P\\\\", E_FAIL},
        {u"\\P", E_FAIL},         {u"P\\\\Q", E_FAIL},
        {u"P\\Q\\", S_OK},        {u"", S_OK},
        {u"P\\" + longest, S_OK}, {u"P\\" + longest + u"k\\Q", E_FAIL},
        {surrogates, S_OK},       {u"P\\STRASSE\\\u00C4", S_OK},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.path));
        EXPECT_EQ(SetText(row.path, u"v", u"x"), row.result);
        EXPECT_EQ(Get(row.path, u"V").result, row.result);
        EXPECT_EQ(Get(row.path, u"V").result, row.result) << "the second time";
    }
    EXPECT_EQ(SetText(u"p\\strasse\\\u00E4", nullptr, u"default"), S_OK);
    EXPECT_EQ(Get(u"P\\Strasse\\\u00C4", u"").Text(), u"default");
    EXPECT_EQ(SubKeys(u"P"), (Names{longest, u"Q", u"STRASSE"})) << "as first written";

    // Around the length at which a record's key is cut, and at the limit.
    for (const std::size_t units : {219u, 220u, 221u, 16383u, 16384u}) {
        SCOPED_TRACE(units);
        const QVRESULT fits = units < 16384 ? S_OK : E_FAIL;
        const QVRESULT found = units < 16384 ? S_OK : QV_E_FILE_NOT_FOUND;
        const std::u16string first(units, u'v');
        const std::u16string other = first.substr(1) + u'w';
        const std::u16string upper = std::u16string(units - 1, u'V') + u'W';
        EXPECT_EQ(SetText(u"P", first.c_str(), u"first"), fits);
        EXPECT_EQ(SetText(u"P", other.c_str(), u"other"), fits);
        EXPECT_EQ(Get(u"P", upper.c_str()).result, found);
        EXPECT_EQ(QVRegistryDeleteValue(kUser, u"P", upper.c_str()), found);
        EXPECT_EQ(Get(u"P", other.c_str()).result, QV_E_FILE_NOT_FOUND);
        EXPECT_EQ(Get(u"P", first.c_str()).result, found);
    }
}

TEST(Registry, ExpandedText)
{
    setenv("QV_TEST_LONG", "0123456789", 1);
    setenv("QV_TEST_SHORT_VALUE_LONG_NAME", "x", 1);
    setenv("QV_TEST_SHORT_VALUE_long_name", "y\xFF", 1);
    const struct
    {
        std::u16string stored; // all of it, with the terminator if there is one
        std::u16string expanded;
    } rows[] = {
        {std::u16string(u"<%qv_Test_long%>\0", 17), u"<0123456789>"},
        {std::u16string(u"%QV_TEST_SHORT_VALUE_LONG_NAME%\0", 32), u"x"},
        {u"%QV_TEST_SHORT_VALUE_long_name%% %", u"y\xDCFF% %"},
        {u"%QV_NONE%%QV_TEST_LONG%", u"%QV_NONE%0123456789"},
        {std::u16string(u"a\0%QV_TEST_LONG%", 16), u"a"},
        {u"", u""},
    };
    for (const auto& row : rows) {
        const auto stored = static_cast<std::uint32_t>(row.stored.size() * 2);
        const auto needed = static_cast<std::uint32_t>((row.expanded.size() + 1) * 2);
        const std::uint32_t both = std::max(stored, needed);
        ASSERT_EQ(QVRegistrySetValue(kUser, u"Expand", u"v", QV_REGTYPE_EXPAND_STRING,
                                     row.stored.data(), stored),
                  S_OK);
        std::uint32_t size = 0;
        EXPECT_EQ(QVRegistryGetValue(kUser, u"Expand", u"v", nullptr, nullptr, &size), S_OK);
        EXPECT_EQ(size, both) << "enough for a second call";
        for (std::uint32_t capacity = 0; capacity < both + 3; ++capacity) {
            SCOPED_TRACE(testing::PrintToString(row.stored) + " in " + std::to_string(capacity));
            const Read read = Get(u"Expand", u"v", capacity);
            EXPECT_EQ(read.result, capacity < both ? E_FAIL : S_OK);
            EXPECT_EQ(read.size, capacity < stored ? both : needed);
            EXPECT_EQ(read.type, capacity < stored ? 2u : 0u);
            EXPECT_TRUE(capacity < both || read.Text() == row.expanded);
            EXPECT_FALSE(capacity >= stored && capacity >= 2 && capacity < both &&
                         (read.bytes[0] | read.bytes[1]) != 0)
                << "half a text must not be used";
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

TEST(Registry, EnumerationOfKeysThatChange)
{
    for (const char16_t* const path : {u"Enum\\b", u"Enum\\C", u"Enum\\a"}) {
        ASSERT_EQ(SetText(path, u"v", u"x"), S_OK);
    }
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
    ASSERT_EQ(SetText(u"Enum\\aa", u"v", u"x"), S_OK); // moves the indices behind it
    EXPECT_EQ(next(8), u"b");
    ASSERT_EQ(QVRegistryDeleteKey(kUser, u"Enum"), 0);
    ASSERT_EQ(SetText(u"Enum\\a\\b", u"v", u"x"), S_OK) << "another key of that name";
    EXPECT_EQ(next(8), u"failed");
    QVRegistryCloseEnum(keys);
}

TEST(Registry, EnumerationOfValues)
{
    ASSERT_EQ(SetText(u"Values", u"Long", u"", QV_REGTYPE_DWORD), S_OK);
    ASSERT_EQ(SetText(u"Values", u"LONG", u"%PATH%", QV_REGTYPE_EXPAND_STRING), S_OK);
    for (const auto& [nameRoom, room] : {std::pair{5u, 14u}, {5u, 13u}, {4u, 14u}}) {
        SCOPED_TRACE(testing::Message() << nameRoom << ' ' << room);
        QVRegEnum values;
        QVWChar name[8] = u"nothing";
        QVWChar data[8] = u"nothing";
        std::uint32_t nameSize = nameRoom;
        std::uint32_t type = 77;
        std::uint32_t size = room;
        const bool nameFits = nameRoom == 5;
        const bool fits = nameFits && room == 14;
        ASSERT_EQ(QVRegistryOpenValueEnum(kUser, u"Values", &values), S_OK);
        EXPECT_EQ(QVRegistryEnumNextValue(values, name, &nameSize, &type, data, &size),
                  fits ? S_OK : E_FAIL);
        EXPECT_EQ(name, std::u16string(nameFits ? u"Long" : u"nothing")) << "as first written";
        EXPECT_EQ(data, std::u16string(fits ? u"%PATH%" : u"nothing"));
        EXPECT_EQ(type, nameFits ? 0u : 77u);
        EXPECT_EQ(nameSize, 4u);
        EXPECT_EQ(size, 14u);
        nameSize = 8;
        EXPECT_EQ(QVRegistryEnumNextValue(values, name, &nameSize, nullptr, nullptr, nullptr),
                  E_FAIL);
        QVRegistryCloseEnum(values);
    }
}

// More than is read ahead, while others write.
TEST(Registry, LongEnumerationIsExact)
{
    Names expected;
    for (int i = 0; i < 1000; ++i) {
        const std::string digits = std::to_string(10000 + i);
        expected.push_back(std::u16string(digits.begin(), digits.end()) +
                           std::u16string(static_cast<std::size_t>(i % 240), u'N'));
        ASSERT_EQ(SetText(u"Long\\" + expected.back(), u"", u""), S_OK);
    }
    const auto write = [count = 0](const std::u16string& name) mutable {
        EXPECT_EQ(++count % 7 == 0 ? SetText(u"Elsewhere", u"v", name) : S_OK, S_OK);
    };
    EXPECT_EQ(SubKeys(u"Long"), expected);
    EXPECT_EQ(SubKeys(u"Long", write), expected);
}

TEST(Registry, DeletesTrees)
{
    std::u16string path = u"Tree";
    for (char16_t i = 0; i < 10000; ++i) {
        const char16_t name[] = {static_cast<char16_t>(u'0' + i % 10), u'\\', char16_t(0x4E00 + i),
                                 0};
        ASSERT_EQ(SetText(path + u"\\" + name, u"v", u"x"), S_OK);
    }
    for (int i = 0; i < 20000; ++i) { // a call for each level would need more stack than there is
        path += u"\\deep";
    }
    ASSERT_EQ(SetText(path, u"v", u"x"), S_OK);
    ASSERT_EQ(SetText(u"TreeBeside", u"v", u"x"), S_OK);
    EXPECT_EQ(Get(path, u"v").result, S_OK);
    errno = 1234;
    EXPECT_EQ(QVRegistryDeleteKey(kUser, u"Tree"), 0);
    EXPECT_EQ(errno, 1234);
    EXPECT_EQ(Get(path, u"v").result, QV_E_FILE_NOT_FOUND) << "no longer remembered";
    EXPECT_EQ(Get(u"TreeBeside", u"v").result, S_OK);
    ASSERT_EQ(SetText(u"Tree\\1", u"w", u"x"), S_OK);
    EXPECT_EQ(SubKeys(u"Tree\\1"), Names{}) << "what was below is gone";

    EXPECT_GT(QVRegistryDeleteKey(kUser, u""), 0) << "a root is emptied and stays";
    EXPECT_EQ(SubKeys(u""), Names{});
    EXPECT_EQ(SetText(u"After", u"v", u"x"), S_OK);
}

} // namespace
