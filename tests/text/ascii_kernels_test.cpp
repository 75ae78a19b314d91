// The kernels against loops too dull to be wrong, at every alignment and length around a block.
#include "text/ascii_kernels.h"
#include "text/ascii_kernels_avx2.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace
{

using namespace qv::core;

constexpr std::size_t kLongest = 100;
const auto kPage = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));

// The start of an unreadable page behind two others, which stay for good.
char* UnreadablePage()
{
    void* const pages =
        mmap(nullptr, 3 * kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    char* const last = static_cast<char*>(pages) + 2 * kPage;
    EXPECT_EQ(0, mprotect(last, kPage, PROT_NONE));
    return last;
}

// Units that end at the unreadable page, or that begin 'place' units in front of the border between
// the two others.
template <class Unit> Unit* Place(char* unreadable, std::size_t units, std::size_t place = 0)
{
    return place == 0 ? reinterpret_cast<Unit*>(unreadable) - units
                      : reinterpret_cast<Unit*>(unreadable - kPage) - place;
}

template <class Unit> Unit Folded(Unit unit, Case to)
{
    const char first = to == Case::Lower ? 'A' : 'a';
    return static_cast<Unit>(unit >= first && unit < first + 26 ? unit ^ 0x20 : unit);
}

template <class Unit> std::size_t RunLength(const Unit* text)
{
    std::size_t length = 0;
    while (text[length] > 0 && static_cast<int>(text[length]) < 0x80) {
        ++length;
    }
    return length;
}

template <class Kernels> class AsciiKernelsTest : public testing::Test
{
protected:
    // Calls check(text, length) for terminated random texts at every place, pure ASCII ones and
    // ones with a unit above it.
    template <class Unit, class Check> void ForEachText(Check check)
    {
        const int highs[] = {0x80, 0xC1, 0xE1, 0xFF, 0x141, 0xFFFF};
        for (std::size_t i = 0; i <= kLongest * (kLongest + 1) && !this->HasFailure(); ++i) {
            const std::size_t length = i % (kLongest + 1);
            const std::size_t place = i / (kLongest + 1);
            SCOPED_TRACE(testing::Message() << "length " << length << ", place " << place);
            Unit* const text = Place<Unit>(m_first, length + 1, place);
            std::generate_n(text, length, [this] {
                const auto number = m_random(); // often a unit beside the letters
                return number % 4 == 0 ? static_cast<Unit>("@AZ[`az{"[number / 4 % 8])
                                       : static_cast<Unit>(1 + number / 4 % 0x7F);
            });
            if (m_random() % 2 == 0) {
                text[m_random() % (length + 1)] = static_cast<Unit>(highs[m_random() % 6]);
            }
            text[length] = 0;
            check(text, length);
        }
    }

    char* const m_first = UnreadablePage();
    char* const m_second = UnreadablePage();
    std::minstd_rand m_random{20};
};

#if defined(__SSE2__)
struct WithAvx2 : Sse2Kernels
{
    static std::size_t SameFolded(const char* first, const char* second, std::size_t max)
    {
        return __builtin_cpu_supports("avx2") != 0 ? Avx2Kernels::SameFolded(first, second, max)
                                                   : Sse2Kernels::SameFolded(first, second, max);
    }
};
using All = testing::Types<PortableKernels, Sse2Kernels, WithAvx2>;
#else
using All = testing::Types<PortableKernels>;
#endif
TYPED_TEST_SUITE(AsciiKernelsTest, All);

TYPED_TEST(AsciiKernelsTest, FindsUnitsAndEnds)
{
    this->template ForEachText<char16_t>([](const char16_t* text, std::size_t length) {
        EXPECT_EQ(length, TypeParam::Length(text));
        for (std::size_t at = 0; at <= length; ++at) {
            EXPECT_EQ(std::u16string_view(text, length + 1).find(text[at]),
                      TypeParam::FindUnit(text, text[at]));
        }
        EXPECT_EQ(length, TypeParam::FindUnit(text, 0x2603));
        for (const std::size_t max : {length, length + 1, length + 9, SIZE_MAX}) {
            EXPECT_EQ(length, TypeParam::LengthWithin(text, max));
        }
    });
}

// The bound may be all that ends a text: nothing behind it need be readable.
TYPED_TEST(AsciiKernelsTest, BoundsEndTexts)
{
    for (std::size_t length = 1; length <= kLongest; ++length) {
        auto* const wide = Place<char16_t>(this->m_first, length);
        std::fill_n(wide, length, u'x');
        EXPECT_EQ(length, TypeParam::LengthWithin(wide, length));
        EXPECT_EQ(length - 1, TypeParam::LengthWithin(wide, length - 1));
        auto* const narrow = Place<char>(this->m_second, length);
        EXPECT_EQ(length, TypeParam::CopyRun(narrow, wide, length));

        auto* const other = Place<char>(this->m_first, length);
        std::fill_n(other, length, 'X');
        EXPECT_EQ(length, TypeParam::SameFolded(narrow, other, length));
        EXPECT_EQ(length,
                  TypeParam::CopyRun(Place<char16_t>(this->m_first, length), narrow, length));
    }
}

template <class Kernels, class To, class From> void CheckCopy(const From* text, std::size_t length)
{
    for (const std::size_t max : {std::size_t{1}, length / 2 + 1, length + 1, length + 20}) {
        SCOPED_TRACE(max);
        const std::size_t copied = std::min(RunLength(text), max);
        const std::vector<To> untouched(kLongest + 20, 0x55);
        std::vector<To> expected = untouched, dest = untouched, quick = untouched;
        std::copy_n(text, copied, expected.begin());
        EXPECT_EQ(copied, Kernels::CopyRun(dest.data(), text, max));
        EXPECT_EQ(expected, dest);
        std::size_t count = copied;
        const bool isShort = Kernels::CopiesShortRun(quick.data(), text, max, count);
        EXPECT_EQ(isShort ? expected : untouched, quick);
        EXPECT_TRUE(!isShort || copied == count);
    }
}

template <class Kernels, Case to, class Unit> void CheckFold(Unit* text, std::size_t length)
{
    const std::size_t run = RunLength(text);
    std::vector<Unit> expected(text, text + length + 1);
    std::transform(text, text + run, expected.begin(), [](Unit unit) { return Folded(unit, to); });
    EXPECT_EQ(run, Kernels::template Fold<to>(text));
    EXPECT_EQ(expected, std::vector<Unit>(text, text + length + 1));
}

template <class Kernels, class Other, class Unit> void CheckRun(Unit* text, std::size_t length)
{
    EXPECT_EQ(RunLength(text), Kernels::AsciiLength(text));
    CheckCopy<Kernels, Other>(text, length);
    CheckFold<Kernels, Case::Lower>(text, length);
    CheckFold<Kernels, Case::Upper>(text, length);
}

TYPED_TEST(AsciiKernelsTest, CopiesAndFoldsRunsAndNothingElse)
{
    this->template ForEachText<char>(CheckRun<TypeParam, char16_t, char>);
    this->template ForEachText<char16_t>(CheckRun<TypeParam, char, char16_t>);
}

TYPED_TEST(AsciiKernelsTest, ComparesAtEveryPairOfAlignments)
{
    this->template ForEachText<char>([this](const char* text, std::size_t length) {
        char* const other = Place<char>(this->m_second, length + 1, this->m_random() % 40);
        std::transform(text, text + length + 1, other, [this](char unit) {
            return Folded(unit, this->m_random() % 2 == 0 ? Case::Upper : Case::Lower);
        });
        if (length != 0 && this->m_random() % 2 == 0) {
            // What differs from a letter's other case in one bit, and less or more than that.
            const int bits[] = {0x20, 0x01, 0x80, 0x60};
            other[this->m_random() % length] ^= static_cast<char>(bits[this->m_random() % 4]);
        }
        std::size_t same = 0;
        while (same < RunLength(text) &&
               Folded(text[same], Case::Upper) == Folded(other[same], Case::Upper)) {
            ++same;
        }
        for (const std::size_t max : {std::size_t{1}, length / 2 + 1, length + 1, SIZE_MAX}) {
            EXPECT_EQ(std::min(same, max), TypeParam::SameFolded(text, other, max)) << max;
        }
        std::size_t start = 0;
        const bool isStop = TypeParam::StopsAtStart(text, other, start);
        EXPECT_TRUE(isStop ? start == same : start <= same) << start << " of " << same;
    });
}

} // namespace
