#include <qvcore6/str.h>

#include <atomic>
#include <cstdarg>
#include <cstring>

#include "platform/processor.h"
#include "platform/wide_text.h"
#include "text/ascii_kernels.h"
#include "text/ascii_kernels_avx2.h"

using namespace qv;
using namespace qv::core;

namespace
{

constexpr std::size_t kNoLimit = SIZE_MAX;

// What the kernel stopped at decides: above ASCII the locale does, from there on.
int32_t CompareAt(const char* first, const char* second, std::size_t max)
{
    if (!IsAscii(*first) || !IsAscii(*second)) {
        return max == kNoLimit ? platform::_stricmp(first, second)
                               : platform::_strnicmp(first, second, max);
    }
    return FoldAscii<Case::Upper>(*first) - FoldAscii<Case::Upper>(*second);
}

template <class Kernels> [[gnu::always_inline]] inline int32_t
Compare(const char* first, const char* second, std::size_t max)
{
    const std::size_t same = Kernels::SameFolded(first, second, max);
    return same == max
               ? 0
               : CompareAt(first + same, second + same, max == kNoLimit ? kNoLimit : max - same);
}

int32_t CompareUsual(const char* first, const char* second, std::size_t max)
{
    return Compare<AsciiKernels>(first, second, max);
}

#if defined(__SSE2__)
[[gnu::target("avx2")]] int32_t CompareAvx2(const char* first, const char* second, std::size_t max)
{
    return Compare<Avx2Kernels>(first, second, max);
}
#endif

using CompareFunction = int32_t (*)(const char* first, const char* second, std::size_t max);

int32_t ChooseCompare(const char* first, const char* second, std::size_t max);

// For long texts the widest that this processor has, chosen at the first call.
constinit std::atomic<CompareFunction> g_compare{ChooseCompare};

int32_t ChooseCompare(const char* first, const char* second, std::size_t max)
{
    CompareFunction chosen = CompareUsual;
#if defined(__SSE2__)
    using namespace platform;
    if (IsProcessorFeaturePresent(PF_AVX2_INSTRUCTIONS_AVAILABLE) != kFalse) {
        chosen = CompareAvx2;
    }
#endif
    g_compare.store(chosen, std::memory_order_relaxed);
    return chosen(first, second, max);
}

} // namespace

size_t QVStrLenA(const char* s)
{
    return std::strlen(s);
}

uint32_t QVStrNLenA(const char* s, uint32_t max)
{
    if (max == 0) {
        return 0;
    }
    const void* const end = std::memchr(s, 0, max);
    return end == nullptr ? max : static_cast<uint32_t>(static_cast<const char*>(end) - s);
}

char* QVStrCpyA(char* dest, const char* src)
{
    return std::strcpy(dest, src);
}

char* QVStrNCpyA(char* dest, const char* src, uint32_t n)
{
    return std::strncpy(dest, src, n);
}

char* QVStrCatA(char* dest, const char* src)
{
    return std::strcat(dest, src);
}

char* QVStrNCatA(char* dest, const char* src, uint32_t n)
{
    return std::strncat(dest, src, n);
}

size_t QVStrCpyCatA(char* dest, int32_t count, ...)
{
    if (dest == nullptr) {
        return 0;
    }
    *dest = 0;
    char* end = dest;
    std::va_list texts;
    va_start(texts, count);
    for (; count > 0; --count) {
        const char* const text = va_arg(texts, const char*);
        if (text != nullptr) {
            const std::size_t length = std::strlen(text);
            std::memcpy(end, text, length);
            end += length;
            *end = 0;
        }
    }
    va_end(texts);
    return static_cast<std::size_t>(end - dest);
}

int32_t QVStrCmpA(const char* first, const char* second)
{
    const int order = std::strcmp(first, second);
    return (order > 0) - (order < 0);
}

int32_t QVStrNCmpA(const char* first, const char* second, uint32_t n)
{
    return std::strncmp(first, second, n);
}

int32_t QVStrICmpA(const char* first, const char* second)
{
    // Most texts differ or end early.
    std::size_t same = 0;
    if (AsciiKernels::StopsAtStart(first, second, same)) [[likely]] {
        return CompareAt(first + same, second + same, kNoLimit);
    }
    return g_compare.load(std::memory_order_relaxed)(first + same, second + same, kNoLimit);
}

int32_t QVStrNICmpA(const char* first, const char* second, uint32_t n)
{
    return n == 0 ? 0 : g_compare.load(std::memory_order_relaxed)(first, second, n);
}

char* QVStrChrA(const char* s, char character)
{
    return const_cast<char*>(std::strchr(s, character));
}

char* QVStrRChrA(const char* s, char character)
{
    return const_cast<char*>(std::strrchr(s, character));
}

char* QVStrStrA(const char* s, const char* sub)
{
    return const_cast<char*>(std::strstr(s, sub));
}
