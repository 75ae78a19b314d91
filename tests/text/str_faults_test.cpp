// What happens when memory runs out, and that ASCII text asks no locale.
#include <gtest/gtest.h>
#include <qvcore6/str.h>

#include <cerrno>
#include <cwchar>
#include <new>
#include <string>

#include "support/alloc_faults.h"
#include "text/ansi_string.h"

using namespace qv;

namespace
{

int g_localeCalls = 0;

} // namespace

extern "C"
{
    decltype(mbrtowc) __real_mbrtowc;

    std::size_t __wrap_mbrtowc(wchar_t* to, const char* from, std::size_t count,
                               std::mbstate_t* state)
    {
        ++g_localeCalls;
        return __real_mbrtowc(to, from, count, state);
    }
}

namespace
{

TEST(StrFaults, AsciiAsksNoLocale)
{
    char text[] = "An ASCII text of several blocks, and some more 123";
    QVWChar units[64];
    EXPECT_EQ(50u, QVAnsiToUnicode(nullptr, text, 0));
    EXPECT_EQ(50u, QVAnsiToUnicode(units, text, 64));
    EXPECT_EQ(0, g_localeCalls);
    text[20] = '\xC4';
    QVAnsiToUnicode(units, text, 64);
    EXPECT_EQ(1, g_localeCalls) << "it does count";
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

} // namespace
