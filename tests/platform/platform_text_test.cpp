// How names compare, references to the environment, security descriptors.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "platform/environment.h"
#include "platform/error.h"
#include "platform/registry_names.h"
#include "platform/security.h"
#include "support/alloc_faults.h"

using namespace qv::platform;

namespace
{

TEST(RegistryNames, Fold)
{
    const struct
    {
        WCHAR unit;
        WCHAR upper;
    } rows[] = {
        {u'a', u'A'},     {u'z', u'Z'},     {u'`', u'`'},     {u'{', u'{'},     {0x00E0, 0x00C0},
        {0x00F7, 0x00F7}, {0x00DF, 0x00DF}, {0x00FF, 0x0178}, {0x0101, 0x0100}, {0x0100, 0x0100},
        {0x03C2, 0x03A3}, {0x0450, 0x0400}, {0x0561, 0x0531}, {0x1E01, 0x1E00}, {0x2170, 0x2160},
        {0x24D0, 0x24B6}, {0xA641, 0xA640}, {0xFF41, 0xFF21}, {0xFF5A, 0xFF3A}, {0xD801, 0xD801},
        {0xFFFF, 0xFFFF}, {0x4E00, 0x4E00}, {0x0080, 0x0080},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(FoldUnit(row.unit), row.upper) << std::hex << unsigned{row.unit};
    }
    // The table is part of the file format: another one would lose keys.
    std::uint64_t sum = 0;
    for (unsigned unit = 0; unit < 0x10000; ++unit) {
        const WCHAR upper = FoldUnit(static_cast<WCHAR>(unit));
        EXPECT_EQ(FoldUnit(upper), upper) << std::hex << unit;
        sum = sum * 31 + upper;
    }
    EXPECT_EQ(sum, 17166866594206199918u);
    const std::u16string name(300, u'\u00E4');
    unsigned char hash[kNameHashSize];
    HashFoldedName(name.data(), name.size(), hash);
    const unsigned char expected[] = {0x4A, 0xB8, 0x37, 0xDA, 0xBC, 0x45, 0xAD, 0xC5,
                                      0x0C, 0x27, 0xDE, 0xE0, 0xB3, 0xE9, 0xA1, 0x0A};
    EXPECT_EQ(std::memcmp(hash, expected, sizeof hash), 0);
}

std::u16string Expand(const char16_t* text)
{
    std::u16string expanded(ExpandEnvironmentStringsW(text, nullptr, 0), u'\0');
    const auto size = static_cast<DWORD>(expanded.size());
    EXPECT_EQ(ExpandEnvironmentStringsW(text, expanded.data(), size), size);
    std::u16string small(expanded.size(), u'x');
    EXPECT_EQ(ExpandEnvironmentStringsW(text, small.data(), size - 1), size);
    EXPECT_EQ(small.back(), u'x') << "written behind the buffer";
    EXPECT_EQ(expanded.back(), u'\0');
    expanded.pop_back();
    return expanded;
}

TEST(Environment, Expansion)
{
    setenv("QV_Test", "mixed", 1);
    setenv("QV_TEST", "%QV_Test%", 1);
    setenv("QV_BYTES", "\xFF\xC3\xBC", 1);
    setenv("QV_EMPTY", "", 1);
    const struct
    {
        const char16_t* text;
        const char16_t* expanded;
    } rows[] = {
        {u"", u""},
        {u"plain", u"plain"},
        {u"%QV_Test%", u"mixed"},
        {u"a%QV_TEST%b", u"a%QV_Test%b"}, // not expanded again
        {u"%QV_EMPTY%", u""},
        {u"%QV_BYTES%", u"\xDCFF\u00FC"},
        {u"%QV_None%QV_Test%", u"%QV_Nonemixed"},
        {u"%%QV_Test%%", u"%mixed%"},
        {u"%", u"%"},
        {u"100 %", u"100 %"},
        {u"%QV_Test", u"%QV_Test"},
        {u"%=%", u"%=%"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(std::u16string(row.text)));
        EXPECT_EQ(Expand(row.text), row.expanded);
    }
    unsetenv("QV_TEST");
    EXPECT_EQ(Expand(u"%qv_tEST%"), u"mixed");
}

TEST(Environment, ExhaustedMemory)
{
    setenv("QV_LONG_NAME_OF_A_VARIABLE", std::string(100, 'x').c_str(), 1);
    DWORD units = 0;
    long before = 0;
    const auto call = [&] {
        before = qv::test::LiveBlocks();
        SetLastError(0);
        units = ExpandEnvironmentStringsW(u"a long text %qv_LONG_NAME_OF_A_VARIABLE%", nullptr, 0);
    };
    EXPECT_GT(qv::test::SweepAllocations(call,
                                         [&](long n, bool failed) {
                                             EXPECT_EQ(units, failed ? 0u : 113u) << n;
                                             EXPECT_EQ(GetLastError(), failed ? 14u : 0u) << n;
                                             EXPECT_EQ(qv::test::LiveBlocks(), before) << n;
                                         }),
              1);
}

TEST(Security, Descriptors)
{
    SECURITY_DESCRIPTOR descriptor;
    ACL list = {2, 0, sizeof(ACL), 0, 0};
    ACL wrong = {1, 0, sizeof(ACL), 0, 0};
    std::memset(static_cast<void*>(&descriptor), 0xEE, sizeof descriptor);
    EXPECT_EQ(SetSecurityDescriptorDacl(&descriptor, kFalse, nullptr, kFalse), kFalse);
    EXPECT_EQ(GetLastError(), 1305u);
    EXPECT_EQ(InitializeSecurityDescriptor(&descriptor, 2), kFalse);
    EXPECT_EQ(GetLastError(), 1305u);
    ASSERT_EQ(InitializeSecurityDescriptor(&descriptor, 1), kTrue);
    EXPECT_EQ(descriptor.Control, 0u);
    EXPECT_EQ(descriptor.Dacl, nullptr);
    EXPECT_EQ(SetSecurityDescriptorDacl(&descriptor, kTrue, &wrong, kFalse), kFalse);
    EXPECT_EQ(GetLastError(), 1336u);
    EXPECT_EQ(SetSecurityDescriptorDacl(&descriptor, kTrue, &list, kTrue), kTrue);
    EXPECT_EQ(descriptor.Dacl, &list);
    EXPECT_EQ(descriptor.Control, SE_DACL_PRESENT | SE_DACL_DEFAULTED);
    EXPECT_EQ(SetSecurityDescriptorDacl(&descriptor, kTrue, nullptr, kFalse), kTrue);
    EXPECT_EQ(descriptor.Control, SE_DACL_PRESENT);
    EXPECT_EQ(SetSecurityDescriptorDacl(&descriptor, kFalse, &list, kFalse), kTrue);
    EXPECT_EQ(descriptor.Control, 0u);
    EXPECT_EQ(descriptor.Dacl, nullptr);
}

} // namespace
