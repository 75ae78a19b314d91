// Blocks of 16 bytes in a register: loads, stores, comparisons, in bytes and in 16-bit units.
#pragma once

#if defined(__SSE2__)

#include <emmintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "text/ascii.h"

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

} // namespace sse2

} // namespace qv::core

#endif
