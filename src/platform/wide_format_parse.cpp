#include "platform/wide_format_parse.h"

#include <climits>

namespace qv::platform
{

namespace
{

const WCHAR* ParseFlags(const WCHAR* at, Conversion& conversion)
{
    for (;; ++at) {
        switch (*at) {
        case u'-':
            conversion.left = true;
            break;
        case u'+':
            conversion.plus = true;
            break;
        case u' ':
            conversion.space = true;
            break;
        case u'#':
            conversion.alternate = true;
            break;
        case u'0':
            conversion.zero = true;
            break;
        default:
            return at;
        }
    }
}

const WCHAR* ParseNumber(const WCHAR* at, int& number)
{
    number = 0;
    for (; *at >= u'0' && *at <= u'9'; ++at) {
        const int digit = *at - u'0';
        number = number > (INT_MAX - digit) / 10 ? INT_MAX : number * 10 + digit;
    }
    return at;
}

const WCHAR* ParseAmount(const WCHAR* at, int& number, bool& isArgument)
{
    if (*at == u'*') {
        isArgument = true;
        return at + 1;
    }
    return ParseNumber(at, number);
}

const WCHAR* ParseSize(const WCHAR* at, ArgumentSize& size)
{
    switch (*at) {
    case u'h':
        size = at[1] == u'h' ? ArgumentSize::kChar : ArgumentSize::kShort;
        return at + (at[1] == u'h' ? 2 : 1);
    case u'l':
        size = at[1] == u'l' ? ArgumentSize::k64 : ArgumentSize::kLong;
        return at + (at[1] == u'l' ? 2 : 1);
    case u'I':
        if (at[1] == u'6' && at[2] == u'4') {
            size = ArgumentSize::k64;
            return at + 3;
        }
        if (at[1] == u'3' && at[2] == u'2') {
            size = ArgumentSize::k32;
            return at + 3;
        }
        size = ArgumentSize::kPointer;
        return at + 1;
    case u'z':
        size = ArgumentSize::kSize;
        return at + 1;
    case u'j':
        size = ArgumentSize::kMost;
        return at + 1;
    case u't':
        size = ArgumentSize::kDistance;
        return at + 1;
    case u'L':
        size = ArgumentSize::kExtended;
        return at + 1;
    case u'w':
        size = ArgumentSize::kWide;
        return at + 1;
    default:
        return at;
    }
}

bool IsLetter(WCHAR unit)
{
    switch (unit) {
    case u'd':
    case u'i':
    case u'u':
    case u'o':
    case u'x':
    case u'X':
    case u'e':
    case u'E':
    case u'f':
    case u'F':
    case u'g':
    case u'G':
    case u'a':
    case u'A':
    case u's':
    case u'S':
    case u'c':
    case u'C':
    case u'p':
    case u'n':
    case u'%':
        return true;
    default:
        return false;
    }
}

} // namespace

const WCHAR* ParseConversion(const WCHAR* at, Conversion* conversion)
{
    at = ParseFlags(at, *conversion);
    at = ParseAmount(at, conversion->width, conversion->widthIsArgument);
    if (*at == u'.') {
        at = ParseAmount(at + 1, conversion->precision, conversion->precisionIsArgument);
    }
    at = ParseSize(at, conversion->size);
    if (!IsLetter(*at)) {
        return at;
    }
    conversion->letter = *at;
    return at + 1;
}

} // namespace qv::platform
