// What happens when memory or a platform call fails, and that ASCII text asks no locale.
#include <gtest/gtest.h>
#include <qvcore6/str.h>

#include <string>

#include "platform/locale.h"
#include "platform/wide_text.h"
#include "support/alloc_faults.h"
#include "text/ansi_string.h"

using namespace qv;

namespace
{

int g_localeCalls = 0;
int g_failConversion = 0; // the conversion that fails: 1 the one for the length, 2 the one after it

bool ConversionFails(int destSize)
{
    return g_failConversion != 0 && (g_failConversion == 1) == (destSize == 0);
}

} // namespace

extern "C"
{
    // clang-format off
int __real__stricmp(const char* a, const char* b);
int __wrap__stricmp(const char* a, const char* b) { ++g_localeCalls; return __real__stricmp(a, b); }
#define QV_COUNTED(Name, Unit)                                                                     \
    Unit* __real_##Name(Unit* text);                                                               \
    Unit* __wrap_##Name(Unit* text) { ++g_localeCalls; return __real_##Name(text); }
QV_COUNTED(_strlwr, char)
QV_COUNTED(_strupr, char)
QV_COUNTED(_wcslwr, char16_t)
QV_COUNTED(_wcsupr, char16_t)
    // clang-format on

    std::size_t __real_mbrtowc(wchar_t* to, const char* from, std::size_t count, void* state);
    std::size_t __wrap_mbrtowc(wchar_t* to, const char* from, std::size_t count, void* state)
    {
        ++g_localeCalls;
        return __real_mbrtowc(to, from, count, state);
    }

    std::size_t __real_wcrtomb(char* to, wchar_t from, void* state);
    std::size_t __wrap_wcrtomb(char* to, wchar_t from, void* state)
    {
        ++g_localeCalls;
        return __real_wcrtomb(to, from, state);
    }

    int __real_MultiByteToWideChar(platform::DWORD page, platform::DWORD flags, const char* src,
                                   int srcSize, char16_t* dest, int destSize);
    int __wrap_MultiByteToWideChar(platform::DWORD page, platform::DWORD flags, const char* src,
                                   int srcSize, char16_t* dest, int destSize)
    {
        return ConversionFails(destSize)
                   ? 0
                   : __real_MultiByteToWideChar(page, flags, src, srcSize, dest, destSize);
    }

    int __real_WideCharToMultiByte(platform::DWORD page, platform::DWORD flags, const char16_t* src,
                                   int srcSize, char* dest, int destSize, const char* replacement,
                                   platform::BOOL* isReplaced);
    int __wrap_WideCharToMultiByte(platform::DWORD page, platform::DWORD flags, const char16_t* src,
                                   int srcSize, char* dest, int destSize, const char* replacement,
                                   platform::BOOL* isReplaced)
    {
        return ConversionFails(destSize)
                   ? 0
                   : __real_WideCharToMultiByte(page, flags, src, srcSize, dest, destSize,
                                                replacement, isReplaced);
    }
}

namespace
{

TEST(StrFaults, AsciiAsksNoLocale)
{
    char narrow[] = "An ASCII text of several blocks, and some more 123";
    QVWChar wide[] = u"An ASCII text of several blocks, and some more 123";
    char bytes[64];
    QVWChar units[64];
    g_localeCalls = 0;
    EXPECT_EQ(0, QVStrICmpA(narrow, "AN ASCII TEXT OF SEVERAL BLOCKS, AND SOME MORE 123"));
    QVStrToLowerA(narrow);
    QVStrToUpperA(narrow);
    QVStrToLowerW(wide);
    QVStrToUpperW(wide);
    EXPECT_EQ(50u, QVAnsiToUnicode(nullptr, narrow, 0));
    EXPECT_EQ(50u, QVAnsiToUnicode(units, narrow, 64));
    EXPECT_EQ(50u, QVUnicodeToAnsi(nullptr, units, 0));
    EXPECT_EQ(50u, QVUnicodeToAnsi(bytes, units, 64));
    EXPECT_EQ(0, g_localeCalls);

    // The counters do count.
    narrow[20] = '\xC4';
    wide[20] = u'\xC4';
    QVStrICmpA(narrow, narrow);
    QVStrToLowerA(narrow);
    QVStrToUpperA(narrow);
    QVStrToLowerW(wide);
    QVStrToUpperW(wide);
    EXPECT_EQ(5, g_localeCalls);
    QVAnsiToUnicode(units, narrow, 64);
    EXPECT_EQ(6, g_localeCalls);
}

// The copies raise the exception to the caller and leave nothing behind.
TEST(StrFaults, DuplicatesRunOutOfMemory)
{
    const auto sweep = [](auto duplicate, auto release) {
        const long start = test::LiveBlocks();
        long before = 0;
        bool isThrown = false;
        decltype(duplicate()) copy = nullptr;
        EXPECT_EQ(1, test::SweepAllocations(
                         [&] {
                             before = test::LiveBlocks();
                             isThrown = false;
                             try {
                                 copy = duplicate();
                             } catch (const std::bad_alloc&) {
                                 isThrown = true;
                             }
                         },
                         [&](long, bool failed) {
                             EXPECT_EQ(failed, isThrown);
                             EXPECT_EQ(failed ? before : before + 1, test::LiveBlocks());
                         }));
        release(copy);
        EXPECT_EQ(start, test::LiveBlocks());
    };
    sweep([] { return QVStrDupA("abc"); }, QVStrFreeA);
    sweep([] { return QVStrNDupA("abc", 2); }, QVStrFreeA);
    sweep([] { return QVStrDupW(u"abc"); }, QVStrFreeW);
    sweep([] { return QVStrNDupW(u"abc", 2); }, QVStrFreeW);
}

TEST(StrFaults, InternalConversionsRunOutOfMemory)
{
    const std::string narrow(100, 'a');
    const std::u16string wide(100, u'a');
    const auto sweep = [](auto convert, auto expected) {
        long before = 0;
        bool isRight = false;
        bool isThrown = false;
        EXPECT_EQ(1, test::SweepAllocations(
                         [&] {
                             before = test::LiveBlocks();
                             isRight = isThrown = false;
                             try {
                                 isRight = convert() == expected;
                             } catch (const std::bad_alloc&) {
                                 isThrown = true;
                             }
                         },
                         [&](long, bool failed) {
                             EXPECT_EQ(failed, isThrown);
                             EXPECT_EQ(!failed, isRight);
                             EXPECT_EQ(before, test::LiveBlocks());
                         }));
    };
    sweep([&] { return QVAnsiToWString(narrow.c_str()); }, std::u16string_view(wide));
    sweep([&] { return QVWStringToAnsi(wide.c_str()); }, std::string_view(narrow));
}

TEST(StrFaults, FailedConversionsGiveEmptyOrZeroText)
{
    EXPECT_EQ(u"", QVAnsiToWString(""));
    EXPECT_EQ("", QVWStringToAnsi(u""));
    g_failConversion = 1;
    EXPECT_EQ(u"", QVAnsiToWString("abc"));
    EXPECT_EQ("", QVWStringToAnsi(u"abc"));
    g_failConversion = 2;
    EXPECT_EQ(std::u16string(3, u'\0'), QVAnsiToWString("abc"));
    EXPECT_EQ(std::string(3, '\0'), QVWStringToAnsi(u"abc"));
    g_failConversion = 0;
    EXPECT_EQ(u"abc", QVAnsiToWString("abc"));
}

// A long number needs memory; without it there is a code and no number.
TEST(StrFaults, LongWideNumbersNeedMemory)
{
    const std::u16string digits(300, u'1');
    QVWChar* end = nullptr;
    const test::FailAllocation fault(1);
    errno = 0;
    EXPECT_EQ(0, QVStrToDW(digits.c_str(), &end));
    EXPECT_EQ(ENOMEM, errno);
    EXPECT_EQ(digits.c_str(), end);
    EXPECT_EQ(12, QVStrToDW(u"12", &end)) << "short ones need none";
}

} // namespace
