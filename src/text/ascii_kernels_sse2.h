// The kernels with 16 bytes at a time. The portable ones say what each promises.
//
// Text is read in blocks of 16 bytes, so a block may hold bytes in front of the text or behind its
// end. It never reaches into a page that holds nothing of the text: a block is part of an aligned
// group, or it is counted out of what is left of the page; the units on a page's border go one by
// one. Only units of the text are written.
#pragma once

#if defined(__SSE2__)

#include <emmintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "text/ascii.h"
#include "text/ascii_kernels_portable.h"

// The bytes of a block outside the text have no influence on a result, but they may be outside the
// object, or under another thread's hand: the sanitizers are right about them, and it is meant.
#define QV_READS_WHOLE_BLOCKS __attribute__((no_sanitize("address", "thread")))

namespace qv::core
{

namespace sse2
{

using Vector = __m128i;

inline constexpr std::size_t kBlock = sizeof(Vector);
inline constexpr std::size_t kGroup = 4 * kBlock;
inline constexpr std::size_t kSmallestPage = 4096;

// What differs between bytes and 16-bit units. Constants stand on the right of a comparison, where
// the instruction has them.
template <class Unit> struct Lanes;

template <> struct Lanes<char>
{
    static constexpr int kHighest = 0x7F;

    [[gnu::always_inline]] static Vector Splat(int value)
    {
        return _mm_set1_epi8(static_cast<char>(value));
    }
    [[gnu::always_inline]] static Vector Equal(Vector a, Vector b) { return _mm_cmpeq_epi8(a, b); }
    [[gnu::always_inline]] static Vector Above(Vector a, Vector b) { return _mm_cmpgt_epi8(a, b); }
    [[gnu::always_inline]] static Vector Sum(Vector a, Vector b) { return _mm_add_epi8(a, b); }
    // As signed bytes, a run's lie above 0.
    [[gnu::always_inline]] static Vector Ends(Vector block)
    {
        return Equal(Above(block, Splat(0)), Splat(0));
    }
    [[gnu::always_inline]] static std::uint32_t EndMask(Vector block)
    {
        return static_cast<std::uint32_t>(_mm_movemask_epi8(Above(block, Splat(0)))) ^ 0xFFFF;
    }
    [[gnu::always_inline]] static bool HasEnd(Vector a, Vector b)
    {
        return _mm_movemask_epi8(_mm_and_si128(Above(a, Splat(0)), Above(b, Splat(0)))) != 0xFFFF;
    }
};

template <> struct Lanes<char16_t>
{
    static constexpr int kHighest = 0x7FFF;

    [[gnu::always_inline]] static Vector Splat(int value)
    {
        return _mm_set1_epi16(static_cast<short>(value));
    }
    [[gnu::always_inline]] static Vector Equal(Vector a, Vector b) { return _mm_cmpeq_epi16(a, b); }
    [[gnu::always_inline]] static Vector Above(Vector a, Vector b) { return _mm_cmpgt_epi16(a, b); }
    [[gnu::always_inline]] static Vector Sum(Vector a, Vector b) { return _mm_add_epi16(a, b); }
    // Moves 1 to the lowest signed value, so that 0 becomes the highest.
    [[gnu::always_inline]] static Vector Ends(Vector block)
    {
        return Above(Sum(block, Splat(kHighest)), Splat(0x7E - 0x8000));
    }
    [[gnu::always_inline]] static std::uint32_t EndMask(Vector block)
    {
        return static_cast<std::uint32_t>(_mm_movemask_epi8(Ends(block)));
    }
    [[gnu::always_inline]] static bool HasEnd(Vector a, Vector b)
    {
        return _mm_movemask_epi8(_mm_or_si128(Ends(a), Ends(b))) != 0;
    }
};

// By value: std::min would take the addresses of locals, whose scopes the sanitizers then track in
// functions that they otherwise leave alone.
[[gnu::always_inline]] inline std::size_t Smaller(std::size_t a, std::size_t b)
{
    return a < b ? a : b;
}

// Bytes from the address on that lie in its page, at least 1.
[[gnu::always_inline]] inline std::size_t BytesInPage(const void* address)
{
    return kSmallestPage - reinterpret_cast<std::uintptr_t>(address) % kSmallestPage;
}

// Units that lie in these bytes or on their end.
template <class Unit> [[gnu::always_inline]] inline std::size_t UnitsIn(std::size_t bytes)
{
    return (bytes + sizeof(Unit) - 1) / sizeof(Unit);
}

[[gnu::always_inline]] inline Vector Load(const void* address)
{
    return _mm_loadu_si128(static_cast<const Vector*>(address));
}

[[gnu::always_inline]] inline Vector LoadAligned(const void* address)
{
    return _mm_load_si128(static_cast<const Vector*>(address));
}

[[gnu::always_inline]] inline void Store(void* address, Vector block)
{
    _mm_storeu_si128(static_cast<Vector*>(address), block);
}

[[gnu::always_inline]] inline void StoreHalf(void* address, Vector block)
{
    _mm_storel_epi64(static_cast<Vector*>(address), block);
}

// The first bytes of a block, fewer than 16, and not one behind them.
[[gnu::always_inline]] inline void StorePart(void* address, Vector block, std::size_t bytes)
{
    auto* to = static_cast<char*>(address);
    if ((bytes & 8) != 0) {
        StoreHalf(to, block);
        block = _mm_unpackhi_epi64(block, block);
        to += 8;
    }
    if ((bytes & 4) != 0) {
        const int four = _mm_cvtsi128_si32(block);
        std::memcpy(to, &four, 4);
        block = _mm_srli_si128(block, 4);
        to += 4;
    }
    const int rest = _mm_cvtsi128_si32(block);
    if ((bytes & 2) != 0) {
        std::memcpy(to, &rest, 2);
        to += 2;
    }
    if ((bytes & 1) != 0) {
        *to = static_cast<char>((bytes & 2) != 0 ? rest >> 16 : rest);
    }
}

// One bit for each byte.
[[gnu::always_inline]] inline std::uint32_t Mask(Vector lanes)
{
    return static_cast<std::uint32_t>(_mm_movemask_epi8(lanes));
}

// The mask is not 0; std::countr_zero would take care of that, at a cost.
template <class Unit> [[gnu::always_inline]] inline std::size_t FirstUnit(std::uint32_t mask)
{
    return static_cast<unsigned>(__builtin_ctz(mask)) / sizeof(Unit);
}

template <class Unit> [[gnu::always_inline]] inline std::size_t FirstUnit(std::uint64_t mask)
{
    return static_cast<unsigned>(__builtin_ctzll(mask)) / sizeof(Unit);
}

// All bits of the lanes that hold a letter of the other case. Moves the last letter to the highest
// signed value; whatever is above 0x7F ends up below the first.
template <Case to, class Unit> [[gnu::always_inline]] inline Vector Letters(Vector block)
{
    using L = Lanes<Unit>;
    constexpr int last = to == Case::Lower ? 'Z' : 'z';
    return L::Above(L::Sum(block, L::Splat(L::kHighest - last)), L::Splat(L::kHighest - 26));
}

[[gnu::always_inline]] inline void StoreConverted(char16_t* dest, Vector bytes)
{
    Store(dest, _mm_unpacklo_epi8(bytes, _mm_setzero_si128()));
    Store(dest + 8, _mm_unpackhi_epi8(bytes, _mm_setzero_si128()));
}

// Fewer units than a block: pieces that overlap. The block is the one at src.
[[gnu::always_inline]] inline void StoreConvertedPart(char16_t* dest, const char* src, Vector bytes,
                                                      std::size_t count)
{
    const Vector zero = _mm_setzero_si128();
    if (count >= 8) {
        Store(dest, _mm_unpacklo_epi8(bytes, zero));
        const auto* const last = reinterpret_cast<const Vector*>(src + count - 8);
        Store(dest + count - 8, _mm_unpacklo_epi8(_mm_loadl_epi64(last), zero));
    } else if (count >= 4) {
        StoreHalf(dest, _mm_unpacklo_epi8(bytes, zero));
        int last = 0;
        std::memcpy(&last, src + count - 4, 4);
        StoreHalf(dest + count - 4, _mm_unpacklo_epi8(_mm_cvtsi32_si128(last), zero));
    } else {
        StorePart(dest, _mm_unpacklo_epi8(bytes, zero), count * sizeof(char16_t));
    }
}

[[gnu::always_inline]] inline void StoreConverted(char* dest, Vector units)
{
    StoreHalf(dest, _mm_packus_epi16(units, units));
}

[[gnu::always_inline]] inline void StoreConvertedPart(char* dest, const char16_t*, Vector units,
                                                      std::size_t count)
{
    StorePart(dest, _mm_packus_epi16(units, units), count);
}

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
    QV_READS_WHOLE_BLOCKS static std::size_t Length(const char16_t* text)
    {
        return sse2::Scan<sse2::IsEnd>(text, SIZE_MAX, _mm_setzero_si128());
    }

    QV_READS_WHOLE_BLOCKS static std::size_t LengthWithin(const char16_t* text, std::size_t max)
    {
        return max == 0 ? 0 : sse2::Scan<sse2::IsEnd>(text, max, _mm_setzero_si128());
    }

    QV_READS_WHOLE_BLOCKS static std::size_t FindUnit(const char16_t* text, char16_t wanted)
    {
        return sse2::Scan<sse2::IsWantedOrEnd>(text, SIZE_MAX,
                                               sse2::Lanes<char16_t>::Splat(wanted));
    }

    template <class Unit> QV_READS_WHOLE_BLOCKS static std::size_t AsciiLength(const Unit* text)
    {
        return sse2::Scan<sse2::IsRunEnd<Unit>>(text, SIZE_MAX, _mm_setzero_si128());
    }

    template <class To, class From>
    QV_READS_WHOLE_BLOCKS static std::size_t CopyRun(To* dest, const From* src, std::size_t max)
    {
        return sse2::CopyRun(dest, src, max);
    }

    // Copies a run of less than a block, count units, and says whether it is one. Otherwise, and if
    // a page ends there, dest stays as it is.
    template <class To, class From> QV_READS_WHOLE_BLOCKS static bool
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
    QV_READS_WHOLE_BLOCKS static bool StopsAtStart(const char* first, const char* second,
                                                   std::size_t& same)
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

    QV_READS_WHOLE_BLOCKS static std::size_t SameFolded(const char* first, const char* second,
                                                        std::size_t max)
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

    template <Case to, class Unit> QV_READS_WHOLE_BLOCKS static std::size_t Fold(Unit* text)
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
