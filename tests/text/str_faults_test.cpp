// What happens when memory runs out.
#include <gtest/gtest.h>
#include <qvcore6/str.h>

#include <cerrno>
#include <functional>
#include <new>
#include <string>

#include "support/alloc_faults.h"
#include "text/ansi_string.h"

using namespace qv;

namespace
{

// The exception reaches the caller, and nothing is left behind.
TEST(StrFaults, RunningOutOfMemory)
{
    const std::string narrow(100, 'a');
    const std::u16string wide(100, u'a');
    const std::function<void()> calls[] = {
        [] { QVStrFreeA(QVStrDupA("abc")); },
        [] { QVStrFreeA(QVStrNDupA("abc", 2)); },
        [] { QVStrFreeW(QVStrDupW(u"abc")); },
        [] { QVStrFreeW(QVStrNDupW(u"abc", 2)); },
        [&] { EXPECT_TRUE(wide == QVAnsiToWString(narrow.c_str())); },
        [&] { EXPECT_TRUE(narrow == QVWStringToAnsi(wide.c_str())); },
    };
    for (const auto& call : calls) {
        const long before = test::LiveBlocks();
        {
            const test::FailAllocation fault(1);
            EXPECT_THROW(call(), std::bad_alloc) << &call - calls;
        }
        call();
        EXPECT_EQ(before, test::LiveBlocks()) << &call - calls;
    }
    // A long number needs memory; without it there is a code and no number.
    const std::u16string digits(300, u'1');
    QVWChar* end = nullptr;
    const test::FailAllocation fault(1);
    errno = 0;
    EXPECT_EQ(0, QVStrToDW(digits.c_str(), &end));
    EXPECT_EQ(ENOMEM, errno);
    EXPECT_EQ(digits.c_str(), end);
}

} // namespace
