// The kernels unit by unit, for any machine. Not inlined: elsewhere they are the rare way over a
// page's border, and would push the usual one aside.
#pragma once

#include <cstddef>
#include <cstdint>

#include "text/ascii.h"

namespace qv::core
{

struct PortableKernels
{
    // Units before the terminator.
    static std::size_t Length(const char16_t* text) { return FindUnit(text, 0); }

    // Units before the first one that is wanted, or before the terminator.
    static std::size_t FindUnit(const char16_t* text, char16_t wanted)
    {
        std::size_t at = 0;
        while (text[at] != wanted && text[at] != 0) {
            ++at;
        }
        return at;
    }

    // Units before the terminator, at most max; with max 0 the text is not read.
    static std::size_t LengthWithin(const char16_t* text, std::size_t max)
    {
        std::size_t at = 0;
        while (at < max && text[at] != 0) {
            ++at;
        }
        return at;
    }

    // Units of the ASCII run at the start.
    template <class Unit> static std::size_t AsciiLength(const Unit* text)
    {
        std::size_t at = 0;
        while (!EndsAsciiRun(text[at])) {
            ++at;
        }
        return at;
    }

    // Widens or narrows the ASCII run, at most max units of it (max above 0), and gives its length.
    template <class To, class From>
    [[gnu::noinline]] static std::size_t CopyRun(To* dest, const From* src, std::size_t max)
    {
        std::size_t at = 0;
        for (; at < max && !EndsAsciiRun(src[at]); ++at) {
            dest[at] = static_cast<To>(src[at]);
        }
        return at;
    }

    template <class To, class From>
    static bool CopiesShortRun(To*, const From*, std::size_t, std::size_t&)
    {
        return false;
    }

    static bool StopsAtStart(const char*, const char*, std::size_t& same)
    {
        same = 0;
        return false;
    }

    // Leading places, at most max (above 0), at which both are ASCII and equal but for case.
    [[gnu::noinline]] static std::size_t SameFolded(const char* first, const char* second,
                                                    std::size_t max)
    {
        std::size_t at = 0;
        while (at < max && IsSame(first[at], second[at])) {
            ++at;
        }
        return at;
    }

    // Folds the letters of the ASCII run in place and gives its length. Text that needs no change
    // is not written, so that constant text which is folded already may be passed.
    template <Case to, class Unit> static std::size_t Fold(Unit* text)
    {
        return FoldWithin<to>(text, SIZE_MAX);
    }

    template <Case to, class Unit>
    [[gnu::noinline]] static std::size_t FoldWithin(Unit* text, std::size_t max)
    {
        std::size_t at = 0;
        for (; at < max && !EndsAsciiRun(text[at]); ++at) {
            const Unit folded = FoldAscii<to>(text[at]);
            if (folded != text[at]) {
                text[at] = folded;
            }
        }
        return at;
    }

    static constexpr bool IsSame(char first, char second)
    {
        return !EndsAsciiRun(first) &&
               FoldAscii<Case::Upper>(first) == FoldAscii<Case::Upper>(second);
    }
};

} // namespace qv::core
