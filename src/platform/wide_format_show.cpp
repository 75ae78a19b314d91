#include "platform/wide_format_show.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

#include "platform/error.h"
#include "platform/wide_text_multibyte.h"

namespace qv::platform
{

namespace
{

// In the order in which the parts are shown.
struct Field
{
    std::u16string_view prefix = {}; // sign, 0x
    std::size_t zeros = 0;
    std::u16string_view body = {};
    std::size_t zerosBehind = 0;
    std::u16string_view tail = {};
};

void Show(WideWriter& out, const Conversion& conversion, const Field& field, bool zeroFills)
{
    const std::size_t padding =
        PaddingFor(conversion, field.prefix.size() + field.zeros + field.body.size() +
                                   field.zerosBehind + field.tail.size());
    if (!conversion.left && !zeroFills) {
        out.Fill(u' ', padding);
    }
    out.Write(field.prefix);
    if (!conversion.left && zeroFills) {
        out.Fill(u'0', padding);
    }
    out.Fill(u'0', field.zeros);
    out.Write(field.body);
    out.Fill(u'0', field.zerosBehind);
    out.Write(field.tail);
    if (conversion.left) {
        out.Fill(u' ', padding);
    }
}

// Widens what the C library has made of a number. Only the decimal point can be beyond ASCII.
std::size_t Widen(const char* text, std::size_t count, WCHAR* dest)
{
    constexpr WCHAR kReplacement = 0xFFFD;
    WCHAR* to = dest;
    for (std::size_t i = 0; i < count;) {
        if (static_cast<unsigned char>(text[i]) < 0x80) {
            *to++ = static_cast<WCHAR>(text[i++]);
            continue;
        }
        const DecodedCharacter next = DecodeCharacter(text + i, count - i);
        const bool isBad = next.taken == kConversionFailed || next.made != 1;
        *to++ = isBad ? kReplacement : next.text[0];
        i += isBad ? 1 : next.taken;
    }
    return static_cast<std::size_t>(to - dest);
}

// No double has a digit other than 0 behind that many.
constexpr int kMostPrecision = 1100;
// With the digits in front of the point, and what else there is.
constexpr std::size_t kMostBytes = kMostPrecision + 400;

// Result: the bytes, 0 without memory.
std::size_t Print(char* dest, const Conversion& conversion, int precision, double value)
{
    char format[8] = "%";
    char* to = format + 1;
    for (const auto& [isSet, flag] :
         {std::pair(conversion.plus, '+'), std::pair(conversion.space, ' '),
          std::pair(conversion.alternate, '#')}) {
        if (isSet) {
            *to++ = flag;
        }
    }
    *to++ = '.';
    *to++ = '*';
    *to = static_cast<char>(conversion.letter);
    const int made = std::snprintf(dest, kMostBytes, format, precision, value);
    return made < 0 ? 0 : std::min(static_cast<std::size_t>(made), kMostBytes - 1);
}

std::u16string_view TakeOff(std::u16string_view& text, std::size_t count)
{
    const std::u16string_view taken = text.substr(0, count);
    text.remove_prefix(taken.size());
    return taken;
}

bool IsSign(WCHAR unit)
{
    return unit == u'-' || unit == u'+' || unit == u' ';
}

} // namespace

void ShowText(WideWriter& out, const Conversion& conversion, std::u16string_view text)
{
    Show(out, conversion, {.body = text}, conversion.zero);
}

void ShowInteger(WideWriter& out, const Conversion& conversion, std::u16string_view sign,
                 std::uint64_t value)
{
    constexpr std::size_t kMostDigits = 22; // 64 bits in octal
    const bool isUpper = conversion.letter == u'X' || conversion.letter == u'p';
    const bool isHex = isUpper || conversion.letter == u'x';
    const bool isOctal = conversion.letter == u'o';
    const char* const digits = isUpper ? "0123456789ABCDEF" : "0123456789abcdef";

    WCHAR buffer[kMostDigits];
    WCHAR* const end = buffer + kMostDigits;
    WCHAR* begin = end;
    const auto write = [&](auto radix) {
        for (std::uint64_t rest = value; rest != 0; rest /= radix) {
            *--begin = static_cast<WCHAR>(digits[rest % radix]);
        }
    };
    // Each with its own constant: a division by a variable costs many times as much.
    if (isHex) {
        write(std::integral_constant<unsigned, 16>());
    } else if (isOctal) {
        write(std::integral_constant<unsigned, 8>());
    } else {
        write(std::integral_constant<unsigned, 10>());
    }
    Field field{.prefix = sign, .body = {begin, static_cast<std::size_t>(end - begin)}};
    const std::size_t least =
        conversion.precision < 0 ? 1 : static_cast<std::size_t>(conversion.precision);
    field.zeros = least > field.body.size() ? least - field.body.size() : 0;
    if (conversion.alternate && isHex && value != 0) {
        field.prefix = isUpper ? u"0X" : u"0x";
    }
    if (conversion.alternate && isOctal && field.zeros == 0) {
        field.zeros = 1;
    }
    Show(out, conversion, field, conversion.zero && conversion.precision < 0);
}

void ShowFloating(WideWriter& out, const Conversion& conversion, double value)
{
    const KeepErrno keep;
    const int precision = std::min(conversion.precision, kMostPrecision);
    char narrow[kMostBytes];
    WCHAR wide[kMostBytes];
    std::u16string_view text(wide,
                             Widen(narrow, Print(narrow, conversion, precision, value), wide));

    const auto letter = static_cast<WCHAR>(conversion.letter | 0x20); // in lower case
    const bool isFinite = std::isfinite(value);
    Field field;
    const std::size_t sign = !text.empty() && IsSign(text[0]) ? 1 : 0;
    field.prefix = TakeOff(text, sign + (letter == u'a' && isFinite ? 2 : 0));
    if (precision < conversion.precision && isFinite && (letter != u'g' || conversion.alternate)) {
        field.body = TakeOff(text, text.find_first_of(letter == u'a' ? u"pP" : u"eE"));
        field.zerosBehind = static_cast<std::size_t>(conversion.precision - precision);
        field.tail = text;
    } else {
        field.body = text;
    }
    Show(out, conversion, field, conversion.zero && isFinite);
}

} // namespace qv::platform
