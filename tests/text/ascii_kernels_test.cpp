// The kernels against loops too dull to be wrong, at every alignment and length around a block.
#include "text/ascii_kernels.h"
#include "text/ascii_kernels_avx2.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "text/guarded_pages.h"

namespace
{

using namespace qv::core;
using qv::test::GuardedPages;

constexpr std::size_t kLongest = 100;

template <class Unit> std::uint32_t Number(Unit unit)
{
    return static_cast<std::make_unsigned_t<Unit>>(unit);
}

template <class Unit> bool IsInRun(Unit unit)
{
    return unit != 0 && Number(unit) < 0x80;
}

template <class Unit> Unit Folded(Unit unit, Case to)
{
    static const std::u16string lower = u"abcdefghijklmnopqrstuvwxyz";
    static const std::u16string upper = u"ABCDEFGHIJKLMNOPQRSTUVWXYZ";
    const std::u16string& from = to == Case::Lower ? upper : lower;
    const auto at = from.find(static_cast<char16_t>(Number(unit)));
    return at == std::u16string::npos ? unit
                                      : static_cast<Unit>((to == Case::Lower ? lower : upper)[at]);
}

template <class Unit> std::size_t RunLength(const Unit* text)
{
    std::size_t length = 0;
    while (IsInRun(text[length])) {
        ++length;
    }
    return length;
}

template <class Kernels> class AsciiKernelsTest : public testing::Test
{
protected:
    // Any ASCII unit but the terminator; often one beside the letters.
    template <class Unit> Unit RandomUnit()
    {
        static const std::string edges = "@AZ[`az{\x7F\x01";
        const auto number = m_random();
        return static_cast<Unit>(number % 4 == 0 ? edges[number / 4 % edges.size()]
                                                 : 1 + static_cast<int>(number / 4 % 0x7F));
    }

    // Calls check(text, length) for terminated random texts that end at the unreadable page or lie
    // over a page's border, pure ASCII ones and ones with a unit above it.
    template <class Unit, class Check> void ForEachText(Check check)
    {
        for (std::size_t length = 0; length <= kLongest; ++length) {
            for (std::size_t place = 0; place <= kLongest; ++place) {
                Unit* const text = place == 0 ? m_pages.FromEnd<Unit>(length + 1)
                                              : m_pages.FromBorder<Unit>(place);
                std::generate_n(text, length, [this] { return RandomUnit<Unit>(); });
                text[length] = 0;
                if (m_random() % 2 == 0) {
                    const int highs[] = {0x80, 0xFF, sizeof(Unit) == 1 ? 0xC1 : 0x141,
                                         sizeof(Unit) == 1 ? 0xE1 : 0xFFFF};
                    text[m_random() % (length + 1)] = static_cast<Unit>(highs[m_random() % 4]);
                    text[length] = 0;
                }
                SCOPED_TRACE(testing::Message() << "length " << length << ", place " << place);
                check(text, length);
                ASSERT_FALSE(this->HasFailure());
            }
        }
    }

    GuardedPages m_pages;
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
        EXPECT_EQ(length, TypeParam::FindUnit(text, 0));
        for (std::size_t at = 0; at < length; ++at) {
            EXPECT_EQ(std::u16string_view(text, length).find(text[at]),
                      TypeParam::FindUnit(text, text[at]));
        }
        EXPECT_EQ(length, TypeParam::FindUnit(text, 0x2603));
        EXPECT_EQ(RunLength(text), TypeParam::AsciiLength(text));
        for (const std::size_t max : {length, length + 1, length + 9, SIZE_MAX}) {
            EXPECT_EQ(length, TypeParam::LengthWithin(text, max));
        }
    });
    this->template ForEachText<char>([](const char* text, std::size_t) {
        EXPECT_EQ(RunLength(text), TypeParam::AsciiLength(text));
    });
}

// The bound may be all that ends a text: nothing behind it need be readable.
TYPED_TEST(AsciiKernelsTest, BoundsEndTexts)
{
    GuardedPages others;
    for (std::size_t length = 1; length <= kLongest; ++length) {
        auto* const wide = this->m_pages.template FromEnd<char16_t>(length);
        std::fill_n(wide, length, u'x');
        EXPECT_EQ(length, TypeParam::LengthWithin(wide, length));
        EXPECT_EQ(length - 1, TypeParam::LengthWithin(wide, length - 1));
        std::vector<char> narrowed(length);
        EXPECT_EQ(length, TypeParam::CopyRun(narrowed.data(), wide, length));

        auto* const narrow = this->m_pages.template FromEnd<char>(length);
        auto* const other = others.FromEnd<char>(length);
        std::fill_n(narrow, length, 'x');
        std::fill_n(other, length, 'X');
        std::vector<char16_t> widened(length);
        EXPECT_EQ(length, TypeParam::CopyRun(widened.data(), narrow, length));
        EXPECT_EQ(length, TypeParam::SameFolded(narrow, other, length));
    }
}

template <class Kernels, class To, class From> void CheckCopy(const From* text, std::size_t length)
{
    constexpr To untouched = 0x55;
    const std::size_t run = RunLength(text);
    for (const std::size_t max : {std::size_t{1}, length / 2, run, length + 1, length + 20}) {
        if (max == 0) {
            continue;
        }
        std::vector<To> expected(kLongest + 20, untouched);
        std::copy_n(text, std::min(run, max), expected.begin());
        std::vector<To> dest(expected.size(), untouched);
        EXPECT_EQ(std::min(run, max), Kernels::CopyRun(dest.data(), text, max));
        EXPECT_EQ(expected, dest) << "max " << max;

        dest.assign(dest.size(), untouched);
        std::size_t count = 0;
        if (Kernels::CopiesShortRun(dest.data(), text, max, count)) {
            EXPECT_EQ(std::min(run, max), count);
            EXPECT_EQ(expected, dest) << "max " << max;
        } else {
            EXPECT_EQ(std::vector<To>(dest.size(), untouched), dest);
        }
    }
}

TYPED_TEST(AsciiKernelsTest, CopiesRunsAndNothingElse)
{
    this->template ForEachText<char>(
        [](const char* text, std::size_t length) { CheckCopy<TypeParam, char16_t>(text, length); });
    this->template ForEachText<char16_t>(
        [](const char16_t* text, std::size_t length) { CheckCopy<TypeParam, char>(text, length); });
}

template <class Kernels, Case to, class Unit> void CheckFold(Unit* text, std::size_t length)
{
    std::vector<Unit> expected(text, text + length + 1);
    const std::size_t run = RunLength(text);
    for (std::size_t at = 0; at < run; ++at) {
        expected[at] = Folded(text[at], to);
    }
    EXPECT_EQ(run, Kernels::template Fold<to>(text));
    EXPECT_EQ(expected, std::vector<Unit>(text, text + length + 1));
}

TYPED_TEST(AsciiKernelsTest, FoldsRunsAndNothingElse)
{
    this->template ForEachText<char>(CheckFold<TypeParam, Case::Lower, char>);
    this->template ForEachText<char>(CheckFold<TypeParam, Case::Upper, char>);
    this->template ForEachText<char16_t>(CheckFold<TypeParam, Case::Lower, char16_t>);
    this->template ForEachText<char16_t>(CheckFold<TypeParam, Case::Upper, char16_t>);
}

TYPED_TEST(AsciiKernelsTest, ComparesAtEveryPairOfAlignments)
{
    GuardedPages others;
    this->template ForEachText<char>([&](const char* text, std::size_t length) {
        // The second text ends at the unreadable page, or lies over a border of its own.
        const std::size_t place = this->m_random() % 40;
        char* const other =
            place == 0 ? others.FromEnd<char>(length + 1) : others.FromBorder<char>(place);
        for (std::size_t at = 0; at <= length; ++at) {
            other[at] = this->m_random() % 2 == 0 ? Folded(text[at], Case::Upper)
                                                  : Folded(text[at], Case::Lower);
        }
        if (length != 0 && this->m_random() % 2 == 0) {
            // What differs from a letter's other case in one bit, and less or more than that.
            const int bits[] = {0x20, 0x01, 0x80, 0x60};
            other[this->m_random() % length] ^= static_cast<char>(bits[this->m_random() % 4]);
        }
        std::size_t same = 0;
        while (IsInRun(text[same]) &&
               Folded(text[same], Case::Upper) == Folded(other[same], Case::Upper)) {
            ++same;
        }
        for (const std::size_t max : {std::size_t{1}, length / 2 + 1, length + 1, SIZE_MAX}) {
            EXPECT_EQ(std::min(same, max), TypeParam::SameFolded(text, other, max)) << max;
        }
        std::size_t start = 0;
        if (TypeParam::StopsAtStart(text, other, start)) {
            EXPECT_EQ(same, start);
        } else {
            EXPECT_GE(same, start);
        }
    });
}

} // namespace
