// The kernels with 16 bytes at a time. The portable ones say what each promises.
//
// Text is read in blocks of 16 bytes, so a block may hold bytes in front of the text or behind its
// end. It never reaches into a page that holds nothing of the text: a block is part of an aligned
// group, or it is counted out of what is left of the page; the units on a page's border go one by
// one. Only units of the text are written.
//
// The bytes of a block outside the text have no influence on a result, but they may be outside the
// object, or under another thread's hand: the sanitizers are right about them, and are told to look
// away.
#pragma once

#if defined(__SSE2__)

#include "text/ascii_kernels_blocks.h"
#include "text/ascii_kernels_portable.h"

namespace qv::core
{

namespace sse2
{

// What a scan looks for; 'wanted' is in all lanes. No objects with a state: the compiler's address
// sanitizer (GCC 12) stumbles over those in functions that it is to leave alone.
struct IsEnd
{
    [[gnu::always_inline]] static Vector In(Vector units, Vector)
    {
        return _mm_cmpeq_epi16(units, _mm_setzero_si128());
    }
};

struct IsWantedOrEnd
{
    [[gnu::always_inline]] static Vector In(Vector units, Vector wanted)
    {
        return _mm_or_si128(_mm_cmpeq_epi16(units, wanted), IsEnd::In(units, wanted));
    }
};

template <class Unit> struct IsRunEnd
{
    [[gnu::always_inline]] static Vector In(Vector block, Vector)
    {
        return Lanes<Unit>::Ends(block);
    }
};

template <class Match>
[[gnu::always_inline]] inline std::uint32_t PairMask(const char* pair, Vector wanted)
{
    return Mask(Match::In(Load(pair), wanted)) | Mask(Match::In(Load(pair + kBlock), wanted))
                                                     << kBlock;
}

template <class Match>
[[gnu::always_inline]] inline std::uint64_t GroupMask(const char* group, Vector wanted)
{
    return PairMask<Match>(group, wanted) |
           std::uint64_t{PairMask<Match>(group + 2 * kBlock, wanted)} << 2 * kBlock;
}

template <class Match> [[gnu::always_inline]] inline bool HasMatch(const char* group, Vector wanted)
{
    const Vector first = _mm_or_si128(Match::In(LoadAligned(group), wanted),
                                      Match::In(LoadAligned(group + kBlock), wanted));
    const Vector second = _mm_or_si128(Match::In(LoadAligned(group + 2 * kBlock), wanted),
                                       Match::In(LoadAligned(group + 3 * kBlock), wanted));
    return Mask(_mm_or_si128(first, second)) != 0;
}

template <class Unit>
[[gnu::always_inline]] inline std::size_t UnitsBetween(const char* begin, const char* end)
{
    return static_cast<std::size_t>(end - begin) / sizeof(Unit);
}

// Units before the first one that matches, at most max (above 0).
template <class Match, class Unit>
[[gnu::always_inline]] inline std::size_t Scan(const Unit* text, std::size_t max, Vector wanted)
{
    const auto* const bytes = reinterpret_cast<const char*>(text);
    const auto address = reinterpret_cast<std::uintptr_t>(text);
    const char* group = bytes - address % kGroup;
    if (address % kSmallestPage <= kSmallestPage - 2 * kBlock) [[likely]] {
        // Short texts end in these two blocks, or in the two behind them.
        std::uint32_t found = PairMask<Match>(bytes, wanted);
        if (found != 0) [[likely]] {
            return Smaller(FirstUnit<Unit>(found), max);
        }
        group += kGroup;
        if (address % kGroup < 2 * kBlock) {
            if (UnitsBetween<Unit>(bytes, group - 2 * kBlock) >= max) {
                return max;
            }
            found = PairMask<Match>(group - 2 * kBlock, wanted);
            if (found != 0) {
                return Smaller(
                    UnitsBetween<Unit>(bytes, group - 2 * kBlock) + FirstUnit<Unit>(found), max);
            }
        }
    } else {
        const std::uint64_t found = GroupMask<Match>(group, wanted) >> address % kGroup;
        if (found != 0) {
            return Smaller(FirstUnit<Unit>(found), max);
        }
        group += kGroup;
    }
    for (;; group += kGroup) {
        if (UnitsBetween<Unit>(bytes, group) >= max) {
            return max;
        }
        if (HasMatch<Match>(group, wanted)) {
            return Smaller(UnitsBetween<Unit>(bytes, group) +
                               FirstUnit<Unit>(GroupMask<Match>(group, wanted)),
                           max);
        }
    }
}

// The end of a copied run, of which the last block is not whole.
template <class To, class From> [[gnu::always_inline]] inline std::size_t
FinishRun(To* dest, const From* src, std::size_t done, Vector block, std::size_t count)
{
    constexpr std::size_t units = kBlock / sizeof(From);
    const std::size_t end = done + count;
    if (end >= units && done != 0) {
        StoreConverted(dest + end - units, Load(src + end - units)); // some are stored once more
    } else {
        StoreConvertedPart(dest + done, src + done, block, count);
    }
    return end;
}

template <class To, class From>
[[gnu::always_inline]] inline std::size_t CopyRun(To* dest, const From* src, std::size_t max)
{
    constexpr std::size_t units = kBlock / sizeof(From);
    for (std::size_t done = 0;;) {
        std::size_t inPage = BytesInPage(src + done);
        for (; inPage >= 2 * kBlock && max - done >= 2 * units; inPage -= 2 * kBlock) {
            const Vector first = Load(src + done);
            const Vector second = Load(src + done + units);
            if (Lanes<From>::HasEnd(first, second)) {
                break;
            }
            StoreConverted(dest + done, first);
            StoreConverted(dest + done + units, second);
            done += 2 * units;
        }
        for (; inPage >= kBlock; inPage -= kBlock) {
            const Vector block = Load(src + done);
            const std::uint32_t ends = Lanes<From>::EndMask(block);
            if (ends != 0 || max - done < units) {
                const std::size_t count = FirstUnit<From>(ends | 1U << kBlock);
                return FinishRun(dest, src, done, block, Smaller(count, max - done));
            }
            StoreConverted(dest + done, block);
            done += units;
        }
        const std::size_t rest = Smaller(UnitsIn<From>(inPage), max - done);
        const std::size_t count = PortableKernels::CopyRun(dest + done, src + done, rest);
        done += count;
        if (count < rest || done == max) {
            return done;
        }
    }
}

// A bit for each place that does not hold ASCII, equal but for case, and no terminator.
[[gnu::always_inline]] inline std::uint32_t DifferenceMask(Vector first, Vector second)
{
    using Bytes = Lanes<char>;
    const Vector caseBit = Bytes::Splat(0x20);
    const Vector letters = Letters<Case::Upper, char>(_mm_or_si128(first, caseBit));
    // Letters may differ in the one bit, all others in none.
    const Vector difference =
        _mm_andnot_si128(_mm_and_si128(letters, caseBit), _mm_xor_si128(first, second));
    return Mask(_mm_and_si128(Bytes::Equal(difference, Bytes::Splat(0)),
                              Bytes::Above(first, Bytes::Splat(0)))) ^
           0xFFFF;
}

} // namespace sse2

struct Sse2Kernels
{
    [[gnu::no_sanitize_address, gnu::no_sanitize_thread]] static std::size_t
    Length(const char16_t* text)
    {
        return sse2::Scan<sse2::IsEnd>(text, SIZE_MAX, _mm_setzero_si128());
    }

    [[gnu::no_sanitize_address, gnu::no_sanitize_thread]] static std::size_t
    LengthWithin(const char16_t* text, std::size_t max)
    {
        return max == 0 ? 0 : sse2::Scan<sse2::IsEnd>(text, max, _mm_setzero_si128());
    }

    [[gnu::no_sanitize_address, gnu::no_sanitize_thread]] static std::size_t
    FindUnit(const char16_t* text, char16_t wanted)
    {
        return sse2::Scan<sse2::IsWantedOrEnd>(text, SIZE_MAX,
                                               sse2::Lanes<char16_t>::Splat(wanted));
    }

    template <class Unit> [[gnu::no_sanitize_address, gnu::no_sanitize_thread]] static std::size_t
    AsciiLength(const Unit* text)
    {
        return sse2::Scan<sse2::IsRunEnd<Unit>>(text, SIZE_MAX, _mm_setzero_si128());
    }

    template <class To, class From>
    [[gnu::no_sanitize_address, gnu::no_sanitize_thread]] static std::size_t
    CopyRun(To* dest, const From* src, std::size_t max)
    {
        return sse2::CopyRun(dest, src, max);
    }

    // Copies a run of less than a block, count units, and says whether it is one. Otherwise, and if
    // a page ends there, dest stays as it is.
    template <class To, class From>
    [[gnu::no_sanitize_address, gnu::no_sanitize_thread]] static bool
    CopiesShortRun(To* dest, const From* src, std::size_t max, std::size_t& count)
    {
        using namespace sse2;
        if (BytesInPage(src) < kBlock) [[unlikely]] {
            return false;
        }
        const Vector block = Load(src);
        const std::uint32_t ends = Lanes<From>::EndMask(block) | 1U << kBlock;
        count = Smaller(FirstUnit<From>(ends), max);
        if (count == kBlock / sizeof(From)) {
            return false;
        }
        StoreConvertedPart(dest, src, block, count);
        return true;
    }

    // Whether SameFolded stops within the first blocks, where names and paths end. If so, same is
    // its result; if not, or if a page ends there, at least that many places are the same.
    [[gnu::no_sanitize_address, gnu::no_sanitize_thread]] static bool
    StopsAtStart(const char* first, const char* second, std::size_t& same)
    {
        using namespace sse2;
        constexpr std::size_t start = 5 * kBlock;
        same = 0;
        if (Smaller(BytesInPage(first), BytesInPage(second)) < start) [[unlikely]] {
            return false;
        }
        for (; same < start; same += kBlock) {
            const std::uint32_t differences =
                DifferenceMask(Load(first + same), Load(second + same));
            if (differences != 0) {
                same += FirstUnit<char>(differences);
                return true;
            }
        }
        return false;
    }

    [[gnu::no_sanitize_address, gnu::no_sanitize_thread]] static std::size_t
    SameFolded(const char* first, const char* second, std::size_t max)
    {
        using namespace sse2;
        for (std::size_t done = 0;;) {
            std::size_t inPages = Smaller(BytesInPage(first + done), BytesInPage(second + done));
            for (; inPages >= kBlock; inPages -= kBlock) {
                const std::uint32_t differences =
                    DifferenceMask(Load(first + done), Load(second + done));
                if (differences != 0) {
                    return Smaller(done + FirstUnit<char>(differences), max);
                }
                done += kBlock;
                if (done >= max) {
                    return max;
                }
            }
            const std::size_t rest = Smaller(inPages, max - done);
            const std::size_t count =
                PortableKernels::SameFolded(first + done, second + done, rest);
            done += count;
            if (count < rest || done == max) {
                return done;
            }
        }
    }

    template <Case to, class Unit>
    [[gnu::no_sanitize_address, gnu::no_sanitize_thread]] static std::size_t Fold(Unit* text)
    {
        using namespace sse2;
        constexpr std::size_t units = kBlock / sizeof(Unit);
        for (std::size_t done = 0;;) {
            std::size_t inPage = BytesInPage(text + done);
            for (; inPage >= kBlock; inPage -= kBlock) {
                const Vector block = Load(text + done);
                const Vector letters = Letters<to, Unit>(block);
                const Vector folded =
                    _mm_xor_si128(block, _mm_and_si128(letters, Lanes<Unit>::Splat(0x20)));
                const std::uint32_t ends = Lanes<Unit>::EndMask(block);
                if (ends != 0) {
                    // The letters in front of the lowest end.
                    if ((Mask(letters) & (ends - 1) & ~ends) != 0) {
                        StorePart(text + done, folded, FirstUnit<char>(ends));
                    }
                    return done + FirstUnit<Unit>(ends);
                }
                if (Mask(letters) != 0) {
                    Store(text + done, folded);
                }
                done += units;
            }
            const std::size_t rest = UnitsIn<Unit>(inPage);
            const std::size_t count = PortableKernels::FoldWithin<to>(text + done, rest);
            done += count;
            if (count < rest) {
                return done;
            }
        }
    }
};

} // namespace qv::core

#endif
