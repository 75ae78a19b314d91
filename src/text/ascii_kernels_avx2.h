// The one kernel that gains enough from 32 bytes at a time: the comparison's peers use them too.
// For processors that have them; the caller asks.
#pragma once

#include "text/ascii_kernels_sse2.h"

#if defined(__SSE2__)

#include <immintrin.h>

namespace qv::core
{

struct Avx2Kernels
{
    [[gnu::target("avx2"), gnu::no_sanitize_address, gnu::no_sanitize_thread]] static std::size_t
    SameFolded(const char* first, const char* second, std::size_t max)
    {
        using namespace sse2;
        if (Smaller(BytesInPages(first, second), max) < kBlock) [[unlikely]] {
            return StartBySmallerBlocks(first, second, max);
        }
        for (std::size_t done = 0;;) {
            std::size_t rest = Smaller(BytesInPages(first + done, second + done), max - done);
            for (; rest >= kBlock; rest -= kBlock) {
                const std::uint32_t differences = DifferenceMask(first + done, second + done);
                if (differences != 0) {
                    return done + FirstUnit<char>(differences);
                }
                done += kBlock;
            }
            // What is left of a page or of max: a block that reaches back over what is the same.
            if (rest != 0) {
                const std::size_t back = done + rest - kBlock;
                const std::uint32_t differences = DifferenceMask(first + back, second + back);
                if (differences != 0) {
                    return back + FirstUnit<char>(differences);
                }
                done += rest;
            }
            if (done == max) {
                return max;
            }
        }
    }

private:
    static constexpr std::size_t kBlock = sizeof(__m256i);

    [[gnu::always_inline]] static std::size_t BytesInPages(const char* first, const char* second)
    {
        return sse2::Smaller(sse2::BytesInPage(first), sse2::BytesInPage(second));
    }

    [[gnu::noinline]] static std::size_t StartBySmallerBlocks(const char* first, const char* second,
                                                              std::size_t max)
    {
        const std::size_t start = max < kBlock ? max : kBlock;
        const std::size_t same = Sse2Kernels::SameFolded(first, second, start);
        return same < start || same == max
                   ? same
                   : same + SameFolded(first + same, second + same, max - same);
    }

    // As for 16 bytes.
    [[gnu::always_inline, gnu::target("avx2"), gnu::no_sanitize_address,
      gnu::no_sanitize_thread]] static std::uint32_t
    DifferenceMask(const char* first, const char* second)
    {
        const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(first));
        const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(second));
        const __m256i caseBit = _mm256_set1_epi8(0x20);
        const __m256i zero = _mm256_setzero_si256();
        const __m256i letters = _mm256_cmpgt_epi8(
            _mm256_add_epi8(_mm256_or_si256(a, caseBit), _mm256_set1_epi8(0x7F - 'z')),
            _mm256_set1_epi8(0x7F - 26));
        const __m256i difference =
            _mm256_andnot_si256(_mm256_and_si256(letters, caseBit), _mm256_xor_si256(a, b));
        return ~static_cast<std::uint32_t>(_mm256_movemask_epi8(
            _mm256_and_si256(_mm256_cmpeq_epi8(difference, zero), _mm256_cmpgt_epi8(a, zero))));
    }
};

} // namespace qv::core

#endif
