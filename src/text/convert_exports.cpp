#include <qvcore6/str.h>

#include <unicode/ustring.h>

#include "platform/wide_text.h"
#include "text/ascii_kernels.h"

using namespace qv;
using namespace qv::core;

namespace
{

// A failure stays a failure: added to the units before it, it would pass for a length.
std::size_t Sum(std::size_t before, std::size_t rest)
{
    return rest == platform::kConversionFailed ? rest : before + rest;
}

// ASCII by the kernel, the rest by the locale.
template <class To, class From, class Rest>
[[gnu::noinline]] std::size_t ConvertLong(To* dest, const From* src, std::size_t size, Rest rest)
{
    if (dest == nullptr) {
        const std::size_t ascii = AsciiKernels::AsciiLength(src);
        return src[ascii] == 0 ? ascii : Sum(ascii, rest(nullptr, src + ascii, 0));
    }
    if (size == 0) {
        return 0;
    }
    const std::size_t ascii = AsciiKernels::CopyRun(dest, src, size);
    if (ascii == size) {
        return ascii;
    }
    if (src[ascii] == 0) {
        dest[ascii] = 0;
        return ascii;
    }
    return Sum(ascii, rest(dest + ascii, src + ascii, size - ascii));
}

template <class To, class From, class Rest>
std::size_t Convert(To* dest, const From* src, std::size_t size, Rest rest)
{
    std::size_t count = 0;
    if (dest != nullptr && size != 0 && AsciiKernels::CopiesShortRun(dest, src, size, count)) {
        if (count == size) {
            return count;
        }
        if (src[count] == 0) {
            dest[count] = 0;
            return count;
        }
    }
    return ConvertLong(dest, src, size, rest);
}

} // namespace

size_t QVAnsiToUnicode(QVWChar* dest, const char* src, uint32_t size)
{
    return Convert(dest, src, size, platform::mbstowcs);
}

size_t QVUnicodeToAnsi(char* dest, const QVWChar* src, uint32_t size)
{
    return Convert(dest, src, size, platform::wcstombs);
}

int32_t QVUTF16ToUTF8(char* dest, const QVWChar* src, int32_t capacity)
{
    int32_t length = 0;
    QVUTF16ToUTF8N(dest, capacity, &length, src, -1);
    return length;
}

int32_t QVUTF8ToUTF16(QVWChar* dest, const char* src, int32_t capacity)
{
    int32_t length = 0;
    QVUTF8ToUTF16N(dest, capacity, &length, src, -1);
    return length;
}

// ICU stores no length for ill-formed text, and callers read it.
char* QVUTF16ToUTF8N(char* dest, int32_t capacity, int32_t* destLength, const QVWChar* src,
                     int32_t srcLength)
{
    int32_t length = 0;
    UErrorCode status = U_ZERO_ERROR;
    char* const result = u_strToUTF8(dest, capacity, &length, src, srcLength, &status);
    if (destLength != nullptr) {
        *destLength = length;
    }
    return result;
}

QVWChar* QVUTF8ToUTF16N(QVWChar* dest, int32_t capacity, int32_t* destLength, const char* src,
                        int32_t srcLength)
{
    int32_t length = 0;
    UErrorCode status = U_ZERO_ERROR;
    QVWChar* const result = u_strFromUTF8(dest, capacity, &length, src, srcLength, &status);
    if (destLength != nullptr) {
        *destLength = length;
    }
    return result;
}

extern constinit const char* const QVUtf8BomStr = "\xEF\xBB\xBF";

int32_t QVIsUtf8BomStr(const char* s)
{
    for (const char* mark = QVUtf8BomStr; *mark != 0; ++mark, ++s) {
        if (*s != *mark) {
            return 0;
        }
    }
    return 1;
}
