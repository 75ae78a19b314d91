// The kernels unit by unit, for any machine.
#pragma once

#include <cstddef>

#include "text/ascii.h"

namespace qv::core
{

struct PortableKernels
{
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

    // Copy the ASCII run, at most max units of it (max above 0), and give its length.
    static std::size_t Widen(char16_t* dest, const char* src, std::size_t max)
    {
        return Copy(dest, src, max);
    }
    static std::size_t Narrow(char* dest, const char16_t* src, std::size_t max)
    {
        return Copy(dest, src, max);
    }

    // Leading places, at most max (above 0), at which both are ASCII and equal but for case.
    static std::size_t SameFolded(const char* first, const char* second, std::size_t max)
    {
        std::size_t at = 0;
        while (at < max && IsSame(first[at], second[at])) {
            ++at;
        }
        return at;
    }

    // Folds the letters of the ASCII run in place and gives its length. Units that need no change
    // are not written alone, so that constant text which is folded already may be passed.
    template <Case to, class Unit> static std::size_t Fold(Unit* text)
    {
        std::size_t at = 0;
        for (; !EndsAsciiRun(text[at]); ++at) {
            FoldUnit<to>(text[at]);
        }
        return at;
    }

    static constexpr bool IsSame(char first, char second)
    {
        return !EndsAsciiRun(first) &&
               FoldAscii<Case::Upper>(first) == FoldAscii<Case::Upper>(second);
    }

    template <Case to, class Unit> static void FoldUnit(Unit& unit)
    {
        const Unit folded = FoldAscii<to>(unit);
        if (folded != unit) {
            unit = folded;
        }
    }

private:
    template <class To, class From>
    static std::size_t Copy(To* dest, const From* src, std::size_t max)
    {
        std::size_t at = 0;
        for (; at < max && !EndsAsciiRun(src[at]); ++at) {
            dest[at] = static_cast<To>(src[at]);
        }
        return at;
    }
};

} // namespace qv::core
