// The kernels with 16 bytes at a time. The portable ones say what each promises.
//
// Text is read in blocks of 16 bytes, so a block may hold bytes behind the text's end. It never
// reaches into a page that holds nothing of the text: a block is aligned, or it is checked to lie
// in one page. Only bytes that belong to the text are written.
#pragma once

#if defined(__SSE2__)

#include <emmintrin.h>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "text/ascii.h"
#include "text/ascii_kernels_portable.h"

// The bytes of a block behind the text's end have no influence on a result, but they may be outside
// the object, or under another thread's hand: the sanitizers are right about them, and it is meant.
#define QV_READS_WHOLE_BLOCKS __attribute__((no_sanitize("address", "thread")))

namespace qv::core
{

namespace sse2
{

using Vector = __m128i;

inline constexpr std::size_t kBlock = sizeof(Vector);
inline constexpr std::size_t kSmallestPage = 4096;

// What differs between bytes and 16-bit units. A mask has one bit for each byte of a block.
template <class Unit> struct Lanes;

template <> struct Lanes<char>
{
    [[gnu::always_inline]] static Vector Splat(int value)
    {
        return _mm_set1_epi8(static_cast<char>(value));
    }
    [[gnu::always_inline]] static Vector Equal(Vector a, Vector b) { return _mm_cmpeq_epi8(a, b); }
    [[gnu::always_inline]] static Vector Above(Vector a, Vector b) { return _mm_cmpgt_epi8(a, b); }
    // As signed bytes, what ends a run lies below 1.
    [[gnu::always_inline]] static Vector Ends(Vector block) { return Above(Splat(1), block); }
};

template <> struct Lanes<char16_t>
{
    [[gnu::always_inline]] static Vector Splat(int value)
    {
        return _mm_set1_epi16(static_cast<short>(value));
    }
    [[gnu::always_inline]] static Vector Equal(Vector a, Vector b) { return _mm_cmpeq_epi16(a, b); }
    [[gnu::always_inline]] static Vector Above(Vector a, Vector b) { return _mm_cmpgt_epi16(a, b); }
    // Moves 1 to the lowest signed value, so that 0 becomes the highest.
    [[gnu::always_inline]] static Vector Ends(Vector block)
    {
        return Above(_mm_add_epi16(block, Splat(0x7FFF)), Splat(0x7E - 0x8000));
    }
};

// By value: std::min would take the addresses of locals, whose scopes the sanitizers then track in
// functions that they otherwise leave alone.
[[gnu::always_inline]] inline std::size_t Smaller(std::size_t a, std::size_t b)
{
    return a < b ? a : b;
}

[[gnu::always_inline]] inline std::size_t Misalignment(const void* address)
{
    return reinterpret_cast<std::uintptr_t>(address) % kBlock;
}

[[gnu::always_inline]] inline bool InOnePage(const void* address)
{
    return reinterpret_cast<std::uintptr_t>(address) % kSmallestPage <= kSmallestPage - kBlock;
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

[[gnu::always_inline]] inline std::uint32_t Mask(Vector lanes)
{
    return static_cast<std::uint32_t>(_mm_movemask_epi8(lanes));
}

template <class Unit> [[gnu::always_inline]] inline std::uint32_t EndMask(Vector block)
{
    return Mask(Lanes<Unit>::Ends(block));
}

template <class Unit> [[gnu::always_inline]] inline std::size_t FirstUnit(std::uint32_t mask)
{
    return static_cast<std::size_t>(std::countr_zero(mask)) / sizeof(Unit);
}

// All bits in the lanes that hold a letter of the other case.
template <Case to, class Unit> [[gnu::always_inline]] inline Vector Letters(Vector block)
{
    constexpr int first = to == Case::Lower ? 'A' : 'a';
    return _mm_and_si128(Lanes<Unit>::Above(block, Lanes<Unit>::Splat(first - 1)),
                         Lanes<Unit>::Above(Lanes<Unit>::Splat(first + 26), block));
}

template <Case to, class Unit>
[[gnu::always_inline]] inline void FoldBlock(Unit* text, Vector block)
{
    const Vector letters = Letters<to, Unit>(block);
    if (Mask(letters) != 0) {
        Store(text, _mm_xor_si128(block, _mm_and_si128(letters, Lanes<Unit>::Splat(0x20))));
    }
}

[[gnu::always_inline]] inline void WidenBlock(char16_t* dest, Vector bytes)
{
    Store(dest, _mm_unpacklo_epi8(bytes, _mm_setzero_si128()));
    Store(dest + 8, _mm_unpackhi_epi8(bytes, _mm_setzero_si128()));
}

// Fewer than 16 units: two pieces that overlap.
[[gnu::always_inline]] inline void WidenShort(char16_t* dest, const char* src, Vector bytes,
                                              std::size_t count)
{
    const Vector zero = _mm_setzero_si128();
    if (count >= 8) {
        Store(dest, _mm_unpacklo_epi8(bytes, zero));
        const auto* last = reinterpret_cast<const Vector*>(src + count - 8);
        Store(dest + count - 8, _mm_unpacklo_epi8(_mm_loadl_epi64(last), zero));
    } else if (count >= 4) {
        StoreHalf(dest, _mm_unpacklo_epi8(bytes, zero));
        int last = 0;
        std::memcpy(&last, src + count - 4, 4);
        StoreHalf(dest + count - 4, _mm_unpacklo_epi8(_mm_cvtsi32_si128(last), zero));
    } else {
        for (std::size_t at = 0; at < count; ++at) {
            dest[at] = static_cast<char16_t>(src[at]);
        }
    }
}

[[gnu::always_inline]] inline void NarrowBlock(char* dest, Vector units)
{
    StoreHalf(dest, _mm_packus_epi16(units, units));
}

// Units before the first lane that Match finds, at most max (above 0).
template <class Unit, class Match>
[[gnu::always_inline]] inline std::size_t Scan(const Unit* text, std::size_t max, Match match)
{
    const std::size_t before = Misalignment(text);
    const char* block = reinterpret_cast<const char*>(text) - before;
    std::uint32_t found = Mask(match(LoadAligned(block))) >> before;
    if (found != 0) {
        return sse2::Smaller(FirstUnit<Unit>(found), max);
    }
    for (std::size_t done = (kBlock - before) / sizeof(Unit); done < max;
         done += kBlock / sizeof(Unit)) {
        block += kBlock;
        found = Mask(match(LoadAligned(block)));
        if (found != 0) {
            return sse2::Smaller(done + FirstUnit<Unit>(found), max);
        }
    }
    return max;
}

} // namespace sse2

struct Sse2Kernels
{
    QV_READS_WHOLE_BLOCKS static std::size_t FindUnit(const char16_t* text, char16_t wanted)
    {
        return sse2::Scan(text, SIZE_MAX, UnitOrEnd{sse2::Lanes<char16_t>::Splat(wanted)});
    }

    QV_READS_WHOLE_BLOCKS static std::size_t LengthWithin(const char16_t* text, std::size_t max)
    {
        return max == 0 ? 0 : sse2::Scan(text, max, UnitOrEnd{_mm_setzero_si128()});
    }

    template <class Unit> QV_READS_WHOLE_BLOCKS static std::size_t AsciiLength(const Unit* text)
    {
        return sse2::Scan(text, SIZE_MAX, RunEnd<Unit>{});
    }

    QV_READS_WHOLE_BLOCKS static std::size_t Widen(char16_t* dest, const char* src, std::size_t max)
    {
        using namespace sse2;
        std::size_t done = 0;
        if (InOnePage(src)) {
            const Vector bytes = Load(src);
            const std::size_t count = RunWithin<char>(bytes, max);
            if (count < kBlock) {
                WidenShort(dest, src, bytes, count);
                return count;
            }
            WidenBlock(dest, bytes);
            done = kBlock - Misalignment(src); // some units are done twice
        } else {
            const std::size_t head = sse2::Smaller(max, kBlock - Misalignment(src));
            done = PortableKernels::Widen(dest, src, head);
            if (done < head) {
                return done;
            }
        }
        std::size_t end = max;
        for (; done < max; done += kBlock) {
            const Vector bytes = LoadAligned(src + done);
            const std::size_t count = RunWithin<char>(bytes, max - done);
            if (count < kBlock) {
                end = done + count;
                break;
            }
            WidenBlock(dest + done, bytes);
        }
        if (end >= kBlock) {
            WidenBlock(dest + end - kBlock, Load(src + end - kBlock));
        } else {
            for (; done < end; ++done) {
                dest[done] = static_cast<char16_t>(src[done]);
            }
        }
        return end;
    }

    QV_READS_WHOLE_BLOCKS static std::size_t Narrow(char* dest, const char16_t* src,
                                                    std::size_t max)
    {
        using namespace sse2;
        constexpr std::size_t units = kBlock / sizeof(char16_t);
        std::size_t done = 0;
        if (!InOnePage(src)) {
            const std::size_t head =
                sse2::Smaller(max, units - Misalignment(src) / sizeof(char16_t));
            done = PortableKernels::Narrow(dest, src, head);
            if (done < head) {
                return done;
            }
        }
        while (done < max) {
            const Vector block = Load(src + done);
            const std::size_t count = RunWithin<char16_t>(block, max - done);
            if (count < units) {
                const std::size_t end = done + count;
                if (end >= units) {
                    NarrowBlock(dest + end - units, Load(src + end - units));
                    return end;
                }
                return done + PortableKernels::Narrow(dest + done, src + done, count);
            }
            NarrowBlock(dest + done, block);
            // Aligned from the second block on, and so in one page; some units are done twice.
            done += units - Misalignment(src + done) / sizeof(char16_t);
        }
        return max;
    }

    QV_READS_WHOLE_BLOCKS static std::size_t SameFolded(const char* first, const char* second,
                                                        std::size_t max)
    {
        using namespace sse2;
        for (std::size_t done = 0;;) {
            while (InOnePage(first + done) && InOnePage(second + done)) {
                const std::uint32_t same = SameMask(Load(first + done), Load(second + done));
                if (same != 0xFFFF) {
                    return sse2::Smaller(done + FirstUnit<char>(~same), max);
                }
                done += kBlock;
                if (done >= max) {
                    return max;
                }
            }
            // Over the end of a page byte by byte.
            for (const std::size_t over = done + kBlock; done < over; ++done) {
                if (done == max || !PortableKernels::IsSame(first[done], second[done])) {
                    return done;
                }
            }
            if (done == max) {
                return done;
            }
        }
    }

    template <Case to, class Unit> QV_READS_WHOLE_BLOCKS static std::size_t Fold(Unit* text)
    {
        using namespace sse2;
        constexpr std::size_t units = kBlock / sizeof(Unit);
        std::size_t done = 0;
        if (InOnePage(text)) {
            const Vector block = Load(text);
            const std::size_t count = RunWithin<Unit>(block, units);
            if (count < units) {
                return FoldUnits<to>(text, 0, count);
            }
            FoldBlock<to>(text, block);
            done = units - Misalignment(text) / sizeof(Unit); // folding twice changes nothing
        } else {
            for (; Misalignment(text + done) != 0; ++done) {
                if (EndsAsciiRun(text[done])) {
                    return done;
                }
                PortableKernels::FoldUnit<to>(text[done]);
            }
        }
        for (;; done += units) {
            const Vector block = LoadAligned(text + done);
            const std::uint32_t ends = EndMask<Unit>(block);
            if (ends == 0) {
                FoldBlock<to>(text + done, block);
                continue;
            }
            const std::size_t end = done + FirstUnit<Unit>(ends);
            if (end < units) {
                return FoldUnits<to>(text, done, end);
            }
            FoldBlock<to>(text + end - units, Load(text + end - units));
            return end;
        }
    }

private:
    struct UnitOrEnd
    {
        [[gnu::always_inline]] sse2::Vector operator()(sse2::Vector block) const
        {
            return _mm_or_si128(_mm_cmpeq_epi16(block, m_wanted),
                                _mm_cmpeq_epi16(block, _mm_setzero_si128()));
        }
        sse2::Vector m_wanted;
    };

    template <class Unit> struct RunEnd
    {
        [[gnu::always_inline]] sse2::Vector operator()(sse2::Vector block) const
        {
            return sse2::Lanes<Unit>::Ends(block);
        }
    };

    // Units of the block that belong to the run, at most max.
    template <class Unit>
    [[gnu::always_inline]] static std::size_t RunWithin(sse2::Vector block, std::size_t max)
    {
        const std::uint32_t ends = sse2::EndMask<Unit>(block) | 1U << sse2::kBlock;
        return sse2::Smaller(sse2::FirstUnit<Unit>(ends), max);
    }

    // A bit for each place at which both are ASCII, not the terminator, and equal but for case.
    [[gnu::always_inline]] static std::uint32_t SameMask(sse2::Vector first, sse2::Vector second)
    {
        using Bytes = sse2::Lanes<char>;
        const sse2::Vector caseBit = Bytes::Splat(0x20);
        // Moves z to the highest signed value; bytes above 0x7F end up below a.
        const sse2::Vector moved =
            _mm_add_epi8(_mm_or_si128(first, caseBit), Bytes::Splat(0x7F - 'z'));
        const sse2::Vector letters = Bytes::Above(moved, Bytes::Splat(0x7F - 26));
        // Letters may differ in the one bit, all others in none.
        const sse2::Vector difference =
            _mm_andnot_si128(_mm_and_si128(letters, caseBit), _mm_xor_si128(first, second));
        return sse2::Mask(_mm_and_si128(Bytes::Equal(difference, _mm_setzero_si128()),
                                        Bytes::Above(first, _mm_setzero_si128())));
    }

    template <Case to, class Unit>
    static std::size_t FoldUnits(Unit* text, std::size_t begin, std::size_t end)
    {
        for (std::size_t at = begin; at < end; ++at) {
            PortableKernels::FoldUnit<to>(text[at]);
        }
        return end;
    }
};

} // namespace qv::core

#endif
