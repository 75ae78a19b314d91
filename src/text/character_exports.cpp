#include <qvcore6/str.h>

#include "platform/wide_text.h"
#include "text/ascii.h"

using namespace qv;
using namespace qv::core;

namespace
{

template <class Unit> constexpr bool IsAsciiSpace(Unit unit)
{
    return unit == 0x20 || (unit >= 0x09 && unit <= 0x0D);
}

} // namespace

char QVToLowerA(char character)
{
    return IsAscii(character) ? FoldAscii<Case::Lower>(character) : platform::tolower(character);
}

QVWChar QVToLowerW(QVWChar character)
{
    return IsAscii(character) ? FoldAscii<Case::Lower>(character) : platform::towlower(character);
}

char QVToUpperA(char character)
{
    return IsAscii(character) ? FoldAscii<Case::Upper>(character) : platform::toupper(character);
}

QVWChar QVToUpperW(QVWChar character)
{
    return IsAscii(character) ? FoldAscii<Case::Upper>(character) : platform::towupper(character);
}

// The classes are 1 or 0: what the C library answers has more bits than these results.

char QVIsAlphaA(char character)
{
    return platform::isalpha(character);
}

QVWChar QVIsAlphaW(QVWChar character)
{
    return platform::iswalpha(character);
}

char QVIsDigitA(char character)
{
    return platform::isdigit(character);
}

QVWChar QVIsDigitW(QVWChar character)
{
    return platform::iswdigit(character);
}

char QVIsSpaceA(char character)
{
    return IsAscii(character) ? IsAsciiSpace(character) : platform::isspace(character);
}

QVWChar QVIsSpaceW(QVWChar character)
{
    return IsAscii(character) ? IsAsciiSpace(character) : platform::iswspace(character);
}
