// What happens when memory or a platform call fails, and that ASCII text asks no locale.
#include <gtest/gtest.h>
#include <qvcore6/str.h>

#include <cerrno>
#include <cwchar>
#include <new>
#include <string>

#include "platform/locale.h"
#include "platform/wide_text.h"
#include "support/alloc_faults.h"
#include "text/ansi_string.h"

using namespace qv;
using namespace qv::platform;

namespace
{

int g_localeCalls = 0;
int g_failingConversion = 0; // 1: the next one, 2: the one after it

} // namespace

extern "C"
{
#define QV_COUNTED(Result, Name, Parameters, Arguments)                                            \
    Result __real_##Name Parameters;                                                               \
    Result __wrap_##Name Parameters                                                                \
    {                                                                                              \
        ++g_localeCalls;                                                                           \
        return __real_##Name Arguments;                                                            \
    }
    QV_COUNTED(int, _stricmp, (const char* a, const char* b), (a, b))
    QV_COUNTED(char*, _strlwr, (char* text), (text))
    QV_COUNTED(WCHAR*, _wcsupr, (WCHAR * text), (text))
    QV_COUNTED(std::size_t, mbrtowc,
               (wchar_t * to, const char* from, std::size_t count, std::mbstate_t* state),
               (to, from, count, state))
    QV_COUNTED(std::size_t, wcrtomb, (char* to, wchar_t from, std::mbstate_t* state),
               (to, from, state))

    decltype(MultiByteToWideChar) __real_MultiByteToWideChar;
    int __wrap_MultiByteToWideChar(DWORD page, DWORD flags, const char* src, int srcSize,
                                   WCHAR* dest, int destSize)
    {
        return g_failingConversion != 0 && --g_failingConversion == 0
                   ? 0
                   : __real_MultiByteToWideChar(page, flags, src, srcSize, dest, destSize);
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
    const auto useAll = [&] {
        g_localeCalls = 0;
        QVStrICmpA(narrow, narrow);
        QVStrToLowerA(narrow);
        QVStrToUpperW(wide);
        QVAnsiToUnicode(nullptr, narrow, 0);
        QVAnsiToUnicode(units, narrow, 64);
        QVUnicodeToAnsi(nullptr, wide, 0);
        QVUnicodeToAnsi(bytes, wide, 64);
        return g_localeCalls;
    };
    EXPECT_EQ(0, useAll());
    narrow[20] = '\xC4';
    wide[20] = u'\xC4';
    EXPECT_LE(7, useAll()) << "each of them";
}

// The exception reaches the caller, and nothing is left behind.
template <class Call> void ExpectThrowsWithoutMemory(Call call)
{
    const long before = test::LiveBlocks();
    bool isThrown = false;
    EXPECT_EQ(1, test::SweepAllocations(
                     [&] {
                         isThrown = false;
                         try {
                             call();
                         } catch (const std::bad_alloc&) {
                             isThrown = true;
                         }
                     },
                     [&](long, bool failed) {
                         EXPECT_EQ(failed, isThrown);
                         EXPECT_EQ(before, test::LiveBlocks());
                     }));
}

TEST(StrFaults, RunningOutOfMemory)
{
    ExpectThrowsWithoutMemory([] { QVStrFreeA(QVStrDupA("abc")); });
    ExpectThrowsWithoutMemory([] { QVStrFreeA(QVStrNDupA("abc", 2)); });
    ExpectThrowsWithoutMemory([] { QVStrFreeW(QVStrDupW(u"abc")); });
    ExpectThrowsWithoutMemory([] { QVStrFreeW(QVStrNDupW(u"abc", 2)); });
    const std::string narrow(100, 'a');
    const std::u16string wide(100, u'a');
    ExpectThrowsWithoutMemory([&] { EXPECT_TRUE(wide == QVAnsiToWString(narrow.c_str())); });
    ExpectThrowsWithoutMemory([&] { EXPECT_TRUE(narrow == QVWStringToAnsi(wide.c_str())); });

    // A long number needs memory; without it there is a code and no number.
    const std::u16string digits(300, u'1');
    QVWChar* end = nullptr;
    const test::FailAllocation fault(1);
    errno = 0;
    EXPECT_EQ(0, QVStrToDW(digits.c_str(), &end));
    EXPECT_EQ(ENOMEM, errno);
    EXPECT_EQ(digits.c_str(), end);
    EXPECT_EQ(12, QVStrToDW(u"12", &end)) << "short ones need none";
}

TEST(StrFaults, FailedConversionsGiveEmptyOrZeroText)
{
    const std::u16string expected[] = {u"abc", u"", std::u16string(3, u'\0')};
    for (const int failing : {1, 2, 0}) {
        g_failingConversion = failing;
        EXPECT_EQ(expected[failing], QVAnsiToWString("abc"));
    }
}

} // namespace
