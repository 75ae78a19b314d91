#include <qvcore6/str.h>

#include <algorithm>
#include <cstdarg>
#include <cstring>

#include "platform/wide_text.h"
#include "text/ascii_kernels.h"

using namespace qv::core;

namespace
{

constexpr std::size_t kNoLimit = SIZE_MAX;

// What the kernel stopped at decides: above ASCII the locale does, from there on.
template <class HighCompare>
int32_t CompareAt(const char* first, const char* second, HighCompare highCompare)
{
    if (!IsAscii(*first) || !IsAscii(*second)) {
        return highCompare(first, second);
    }
    return FoldAscii<Case::Upper>(*first) - FoldAscii<Case::Upper>(*second);
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
    const std::size_t same = AsciiKernels::SameFolded(first, second, kNoLimit);
    return CompareAt(first + same, second + same, qv::platform::_stricmp);
}

int32_t QVStrNICmpA(const char* first, const char* second, uint32_t n)
{
    const std::size_t same = n == 0 ? 0 : AsciiKernels::SameFolded(first, second, n);
    if (same == n) {
        return 0;
    }
    return CompareAt(first + same, second + same, [rest = n - same](const char* a, const char* b) {
        return qv::platform::_strnicmp(a, b, rest);
    });
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
