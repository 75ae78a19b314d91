// The default locale and charset of this process's environment, each in a process of its own.
#include <gtest/gtest.h>
#include <qvcore6/locale.h>
#include <unicode/ucnv.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <string>

#include "support/child_process.h"
#include "text/locale_table.h"

using qv::test::Child;

namespace
{

TEST(UserLocale, IsThatOfTheEnvironment)
{
    const struct
    {
        const char* all;
        const char* messages;
        const char* lang;
        std::u16string locale;
        std::u16string encoding;
    } rows[] = {
        {nullptr, nullptr, nullptr, u"en_US_POSIX", u"CP1252"},
        {"", "", "", u"en_US_POSIX", u"CP1252"},
        {"C", "de_DE", "de_DE", u"en_US_POSIX", u"CP1252"},
        {"POSIX", nullptr, nullptr, u"en_US_POSIX", u"CP1252"},
        {"C.UTF-8", nullptr, nullptr, u"en_US_POSIX", u"UTF-8"},
        {nullptr, "", "en_US", u"en_US", u"CP1252"},
        {nullptr, "nb_NO.UTF-8", "C.UTF-8", u"nb_NO", u"UTF-8"},
        {nullptr, nullptr, "de_DE.ISO-8859-1", u"de_DE", u"CP1252"},
        {"de_DE@euro", nullptr, nullptr, u"de_DE", u"CP1252"},
        {"ru_RU.KOI8-R", nullptr, nullptr, u"ru_RU", u"CP1251"},
        {"ja_JP.SJIS", nullptr, nullptr, u"ja_JP", u"CP932"},
        {"zh_CN.GB18030", nullptr, nullptr, u"zh_CN", u"CP936"},
        {"hy_AM.ARMSCII-8", nullptr, nullptr, u"hy_AM", u"CP1252"},
        {"de", nullptr, nullptr, u"de", u"CP1252"},
        {"xx_XX.UTF-8", nullptr, nullptr, u"en_US", u"CP1252"}, // not installed
        {"a_name_of_more_than_any_locale_has_in_letters", nullptr, nullptr, u"en_US", u"CP1252"},
    };
    for (const auto& row : rows) {
        Child child([&] {
            const std::pair<const char*, const char*> variables[] = {
                {"LC_ALL", row.all}, {"LC_MESSAGES", row.messages}, {"LANG", row.lang}};
            for (const auto& [name, value] : variables) {
                value != nullptr ? setenv(name, value, 1) : unsetenv(name);
            }
            char16_t text[16];
            EXPECT_EQ(S_OK, QVGetDefaultLocale(text, 16));
            EXPECT_EQ(row.locale, text);
            EXPECT_EQ(S_OK, QVGetDefaultCharEncoding(text, 8));
            EXPECT_EQ(row.encoding, text);
            // Whoever converts by that name gets that charset, not the last resort.
            UErrorCode status = U_ZERO_ERROR;
            ucnv_close(ucnv_openU(text, &status));
            EXPECT_TRUE(U_SUCCESS(status));
            return !testing::Test::HasFailure();
        });
        EXPECT_TRUE(child.Succeeded()) << (row.all != nullptr ? row.all : "none");
    }
}

TEST(UserLocale, FillsBuffersThatAreLargeEnough)
{
    setenv("LC_ALL", "en_US", 1);
    char16_t text[] = u"----------";
    EXPECT_EQ(QV_E_BUFFER_TOO_SMALL, QVGetDefaultLocale(text, 5));
    EXPECT_EQ(QV_E_BUFFER_TOO_SMALL, QVGetDefaultLocale(nullptr, 0));
    EXPECT_EQ(QV_E_BUFFER_TOO_SMALL, QVGetDefaultCharEncoding(text, 7));
    EXPECT_EQ(QV_E_BUFFER_TOO_SMALL, QVGetDefaultCharEncoding(nullptr, -1));
    EXPECT_EQ(std::u16string(u"----------"), text);
    EXPECT_EQ(S_OK, QVGetDefaultLocale(text, 8));
    EXPECT_EQ(std::u16string(u"en_US\0\0\0--", 10), std::u16string(text, 10));
    EXPECT_EQ(S_OK, QVGetDefaultLocale(text, 6));
}

TEST(UserLocale, KnowsTheNumbersOfTheTable)
{
    using qv::core::kLocales;
    using qv::core::LocaleName;
    EXPECT_EQ(225u, std::size(kLocales));
    EXPECT_TRUE(std::is_sorted(std::begin(kLocales), std::end(kLocales),
                               [](auto& a, auto& b) { return a.id < b.id; }));
    for (const auto& row : kLocales) {
        EXPECT_STREQ(row.name, LocaleName(row.id));
    }
    for (const uint32_t id : {0x17u, 0x28u, 0x30u, 0x10408u, 0xFFFFFFFFu}) {
        EXPECT_STREQ("en_US", LocaleName(id));
    }
    EXPECT_STREQ("es__TRADITIONAL", LocaleName(0x40A));
    EXPECT_STREQ("de__PHONEBOOK", LocaleName(0x10407));
}

} // namespace
