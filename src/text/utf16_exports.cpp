#include <qvcore6/str.h>

#include <algorithm>

#include <unicode/stringoptions.h>
#include <unicode/ustring.h>

#include "text/ascii.h"
#include "text/wide_search.h"
#include "text/wide_units.h"

using namespace qv::core;

namespace
{

// ICU counts in signed 32 bits and cannot hold a longer text.
int32_t IcuCount(uint32_t count)
{
    return static_cast<int32_t>(std::min<uint32_t>(count, INT32_MAX));
}

using CaseMapping = decltype(&u_strToLower);

// A mapping that does not fit into the text's own length leaves the text as it was.
QVWChar* MapCase(QVWChar* text, CaseMapping mapping)
{
    const int32_t length = u_strlen(text);
    UErrorCode status = U_ZERO_ERROR;
    mapping(text, length, text, length, nullptr, &status);
    return text;
}

} // namespace

int32_t QVStrLenUTF16(const QVWChar* s)
{
    return u_strlen(s);
}

uint32_t QVStrNLenUTF16(const QVWChar* s, uint32_t max)
{
    return QVStrNLenW(s, max);
}

int32_t QVCountCharUTF16(const QVWChar* s)
{
    return u_countChar32(s, -1);
}

int32_t QVStrCmpUCS2(const QVWChar* first, const QVWChar* second)
{
    return UnitDifference(first, second);
}

int32_t QVStrICmpUCS2(const QVWChar* first, const QVWChar* second)
{
    for (;; ++first, ++second) {
        const int32_t difference = FoldAscii<Case::Lower>(*first) - FoldAscii<Case::Lower>(*second);
        if (difference != 0 || *first == 0) {
            return difference;
        }
    }
}

int32_t QVStrCmpUTF16(const QVWChar* first, const QVWChar* second)
{
    return u_strcmpCodePointOrder(first, second);
}

int32_t QVStrNCmpUTF16(const QVWChar* first, const QVWChar* second, uint32_t n)
{
    return u_strncmpCodePointOrder(first, second, IcuCount(n));
}

int32_t QVStrICmpUTF16(const QVWChar* first, const QVWChar* second)
{
    return u_strcasecmp(first, second, U_COMPARE_CODE_POINT_ORDER);
}

int32_t QVStrNICmpUTF16(const QVWChar* first, const QVWChar* second, uint32_t n)
{
    return u_strncasecmp(first, second, IcuCount(n), U_COMPARE_CODE_POINT_ORDER);
}

QVWChar* QVStrChrUCS2(const QVWChar* s, QVWChar character)
{
    return u_strchr(s, character);
}

QVWChar* QVStrRChrUCS2(const QVWChar* s, QVWChar character)
{
    return u_strrchr(s, character);
}

QVWChar* QVStrChrUTF16(const QVWChar* s, uint32_t codePoint)
{
    return u_strchr32(s, static_cast<UChar32>(codePoint));
}

QVWChar* QVStrRChrUTF16(const QVWChar* s, uint32_t codePoint)
{
    return u_strrchr32(s, static_cast<UChar32>(codePoint));
}

QVWChar* QVStrStrUTF16(const QVWChar* s, const QVWChar* sub)
{
    return const_cast<QVWChar*>(FindText(s, sub, Pairs::StayWhole));
}

QVWChar* QVStrToLowerUTF16(QVWChar* s)
{
    return MapCase(s, u_strToLower);
}

QVWChar* QVStrToUpperUTF16(QVWChar* s)
{
    return MapCase(s, u_strToUpper);
}

uint32_t QVNextCharUTF16(const QVWChar** cursor, int32_t limit)
{
    // A text that goes on behind a lead unit has at least its terminator there.
    if (limit == -1) {
        limit = 2;
    }
    if (limit < 1) {
        return 0;
    }
    const QVWChar* const at = *cursor;
    if (!IsLead(at[0]) || limit == 1 || !IsTrail(at[1])) {
        *cursor = at + 1;
        return at[0];
    }
    *cursor = at + 2;
    return (static_cast<uint32_t>(at[0]) << 10) + at[1] - 0x35FDC00;
}
