// What the process's locale decides. Locales: one that knows ASCII alone, UTF-8, and two with a
// byte for each character.
#include <gtest/gtest.h>
#include <qvcore6/str.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <string>
#include <vector>

namespace
{

constexpr const char* kLatin1 = "de_DE.ISO-8859-1";
constexpr const char* kKoi8 = "ru_RU.KOI8-R";
constexpr std::size_t kFailed = static_cast<std::size_t>(-1);

void Use(const char* locale)
{
    ASSERT_NE(nullptr, std::setlocale(LC_ALL, locale)) << locale;
}

TEST(StrLocale, BytesAndUnits)
{
    const struct
    {
        const char* locale;
        char byte, lowerA, upperA;
        bool isAlphaA;
        QVWChar unit, lowerW, upperW;
        bool isAlphaW, isSpaceW;
    } rows[] = {
        {"C", '\xC4', '\xC4', '\xC4', false, 0xC4, 0xC4, 0xC4, false, false},
        {"C.UTF-8", '\xC4', '\xC4', '\xC4', false, 0xC4, 0xE4, 0xC4, true, false},
        {kLatin1, '\xFE', '\xFE', '\xDE', true, 0x3C9, 0x3C9, 0x3A9, true, false},
        // A letter with two cases in the charset, but as a char EOF to the C library.
        {kKoi8, '\xFF', '\xFF', '\xFF', false, 0xFF, 0xFF, 0x178, true, false},
        {"C.UTF-8", '\xA0', '\xA0', '\xA0', false, 0x3000, 0x3000, 0x3000, false, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.locale << " " << static_cast<unsigned>(row.unit));
        Use(row.locale);
        EXPECT_EQ(row.lowerA, QVToLowerA(row.byte));
        EXPECT_EQ(row.upperA, QVToUpperA(row.byte));
        EXPECT_EQ(row.isAlphaA, QVIsAlphaA(row.byte));
        EXPECT_EQ(row.lowerW, QVToLowerW(row.unit));
        EXPECT_EQ(row.upperW, QVToUpperW(row.unit));
        EXPECT_EQ(row.isAlphaW, QVIsAlphaW(row.unit));
        EXPECT_EQ(row.isSpaceW, QVIsSpaceW(row.unit));
    }
}

TEST(StrLocale, CaseOfTexts)
{
    const std::string rows[][4] = {
        {"C.UTF-8", "Ab\xC3\x84Z", "ab\xC3\x84z", "AB\xC3\x84Z"},
        {kLatin1, "Ab\xC4\xFFZz", "ab\xE4\xFFzz", "AB\xC4\xFFZZ"},
        {kKoi8, "a\xFF", "a\xDF", "A\xFF"},
    };
    for (const auto& [locale, text, lower, upper] : rows) {
        Use(locale.c_str());
        EXPECT_EQ(lower, QVStrToLowerA(std::string(text).data())) << locale;
        EXPECT_EQ(upper, QVStrToUpperA(std::string(text).data())) << locale;
    }
    Use("C.UTF-8");
    std::u16string text = u"A\xC4\x3A9\xD801\xDC00Z";
    EXPECT_EQ(std::u16string(u"a\xE4\x3C9\xD801\xDC00z"), QVStrToLowerW(text.data()));
    Use(kLatin1);
    EXPECT_EQ(0, QVStrNICmpA("x\xC4y1", "X\xE4Y2", 3));
    EXPECT_EQ('a' - 0xE4, QVStrICmpA("xA", "X\xC4")) << "from a high byte on, lower case counts";
    EXPECT_LT(0, QVStrICmpA("a\xC4z", "A\xE4_")) << "and so does the underscore";
    Use("C");
    EXPECT_GT(0, QVStrICmpA("x\xC4", "X\xE4"));
}

TEST(StrLocale, AnsiToUnicodeAndBack)
{
    const struct
    {
        const char* locale;
        std::string narrow;
        uint32_t size;
        std::size_t result;
        std::u16string wide; // what is in the buffer then, of 'x' before; a '.' is a zero unit
    } rows[] = {
        {"C.UTF-8", "abc", 2, 2, u"abxxxx"},
        {"C.UTF-8", "a\xC3\xA4\xE2\x82\xAC", 6, 3, u"a\xE4\x20AC.xx"},
        {"C.UTF-8", "a\xF0\x9F\x98\x80z", 6, 4, u"a\xD83D\xDE00z.x"},
        {"C.UTF-8", "a\xF0\x9F\x98\x80z", 2, 1, u"axxxxx"}, // no half pairs
        {"C", "ab\xE4", 6, kFailed, u"abxxxx"},
        {kLatin1, "ab\xE4\xFF", 6, 4, u"ab\xE4\xFF.x"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.locale << " '" << row.narrow << "' " << row.size);
        Use(row.locale);
        // An exact copy: the sanitizers see one byte more.
        const std::vector<char> narrow(row.narrow.c_str(),
                                       row.narrow.c_str() + row.narrow.size() + 1);
        std::u16string buffer(6, u'x');
        errno = 0;
        EXPECT_EQ(row.result, QVAnsiToUnicode(buffer.data(), narrow.data(), row.size));
        EXPECT_EQ(row.result == kFailed ? EILSEQ : 0, errno);
        if (row.size == 6 && row.result != kFailed) {
            EXPECT_EQ(row.result, QVAnsiToUnicode(nullptr, narrow.data(), 0));
            std::string back(8, 'x');
            EXPECT_EQ(row.narrow.size(), QVUnicodeToAnsi(back.data(), buffer.c_str(), 8));
            EXPECT_STREQ(row.narrow.c_str(), back.c_str());
        }
        std::replace(buffer.begin(), buffer.end(), u'\0', u'.');
        EXPECT_EQ(row.wide, buffer);
    }
}

TEST(StrLocale, UnicodeToAnsiAndNumbers)
{
    Use("C.UTF-8");
    std::string buffer(6, 'x');
    EXPECT_EQ(1u, QVUnicodeToAnsi(buffer.data(), u"a\x20AC", 3)) << "no part of a character";
    EXPECT_EQ("axxxxx", buffer);
    for (const QVWChar* unpaired : {u"a\xD83D", u"a\xDE00\xD83D", u"a\xD83Dz"}) {
        EXPECT_EQ(kFailed, QVUnicodeToAnsi(buffer.data(), unpaired, 6));
        EXPECT_EQ(kFailed, QVUnicodeToAnsi(nullptr, unpaired, 0));
    }
    Use(kLatin1);
    EXPECT_EQ(kFailed, QVUnicodeToAnsi(buffer.data(), u"a\x20AC", 6));
    EXPECT_EQ(-1.25, QVStrToDA("-1,25.5", nullptr)) << "the locale's decimal point";
    EXPECT_EQ(-1.25, QVStrToDW(u"\x3000-1,25.5", nullptr));
}

} // namespace
