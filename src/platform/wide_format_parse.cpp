#include "platform/wide_format_parse.h"

#include <climits>
#include <string_view>

namespace qv::platform
{

namespace
{

constexpr std::u16string_view kLetters = u"diuoxXeEfFgGaAsScCpn%";

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

struct SizeRow
{
    std::u16string_view text;
    ArgumentSize size;
};

// A text that begins with another one comes first.
constexpr SizeRow kSizes[] = {
    {u"hh", ArgumentSize::kChar},    {u"h", ArgumentSize::kShort},    {u"ll", ArgumentSize::k64},
    {u"l", ArgumentSize::kLong},     {u"I64", ArgumentSize::k64},     {u"I32", ArgumentSize::k32},
    {u"I", ArgumentSize::kPointer},  {u"z", ArgumentSize::kSize},     {u"j", ArgumentSize::kMost},
    {u"t", ArgumentSize::kDistance}, {u"L", ArgumentSize::kExtended}, {u"w", ArgumentSize::kWide},
};

bool StartsWith(const WCHAR* at, std::u16string_view text)
{
    // A terminator differs from what is looked for, so nothing behind it is read.
    for (const WCHAR unit : text) {
        if (*at++ != unit) {
            return false;
        }
    }
    return true;
}

const WCHAR* ParseSize(const WCHAR* at, ArgumentSize& size)
{
    for (const SizeRow& row : kSizes) {
        if (StartsWith(at, row.text)) {
            size = row.size;
            return at + row.text.size();
        }
    }
    return at;
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
    if (*at == 0 || kLetters.find(*at) == std::u16string_view::npos) {
        return at;
    }
    conversion->letter = *at;
    return at + 1;
}

} // namespace qv::platform
