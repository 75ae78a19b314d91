#include <langinfo.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cwchar>
#include <limits>
#include <memory>
#include <new>
#include <string_view>
#include <type_traits>

#include "platform/error.h"
#include "platform/wide_text.h"

namespace qv::platform
{

namespace
{

bool IsSpace(char byte)
{
    return isspace(byte);
}

bool IsSpace(WCHAR unit)
{
    return iswspace(unit);
}

template <class Unit> bool IsOneOf(Unit unit, char lower, char upper)
{
    return unit == static_cast<Unit>(lower) || unit == static_cast<Unit>(upper);
}

// 36 for what is no digit in any base.
template <class Unit> unsigned DigitOf(Unit unit)
{
    if (unit >= '0' && unit <= '9') {
        return static_cast<unsigned>(unit - '0');
    }
    if (unit >= 'a' && unit <= 'z') {
        return static_cast<unsigned>(unit - 'a' + 10);
    }
    if (unit >= 'A' && unit <= 'Z') {
        return static_cast<unsigned>(unit - 'A' + 10);
    }
    return 36;
}

// A sign and digits, as strtol and its kin read them: a minus in front of an unsigned number gives
// its two's complement.
template <class Number, class Unit> Number Parse(const Unit* text, Unit** end, int base)
{
    using Limits = std::numeric_limits<Number>;
    if (end != nullptr) {
        *end = const_cast<Unit*>(text);
    }
    if (base != 0 && (base < 2 || base > 36)) {
        errno = EINVAL;
        return 0;
    }
    const Unit* at = text;
    while (IsSpace(*at)) {
        ++at;
    }
    const bool isNegative = *at == '-';
    if (isNegative || *at == '+') {
        ++at;
    }
    if ((base == 0 || base == 16) && at[0] == '0' && IsOneOf(at[1], 'x', 'X') &&
        DigitOf(at[2]) < 16) {
        at += 2;
        base = 16;
    } else if (base == 0) {
        base = *at == '0' ? 8 : 10;
    }
    const auto radix = static_cast<unsigned>(base);
    const auto most = std::is_signed_v<Number> && isNegative
                          ? std::uint64_t{1} << Limits::digits
                          : static_cast<std::uint64_t>(Limits::max());
    const Unit* const digits = at;
    std::uint64_t value = 0;
    bool isTooLarge = false;
    for (unsigned digit = 0; (digit = DigitOf(*at)) < radix; ++at) {
        isTooLarge = isTooLarge || value > (most - digit) / radix;
        value = isTooLarge ? value : value * radix + digit;
    }
    if (at == digits) {
        return 0;
    }
    if (end != nullptr) {
        *end = const_cast<Unit*>(at);
    }
    if (isTooLarge) {
        errno = ERANGE;
        return std::is_signed_v<Number> && isNegative ? Limits::min() : Limits::max();
    }
    return static_cast<Number>(isNegative ? 0 - value : value);
}

// The longest text that std::to_chars can make, with a terminator: 64 binary digits.
constexpr std::size_t kNumberBytes = 65;

template <class Number, class Unit> Unit* Format(Number value, Unit* buffer, int radix)
{
    char digits[kNumberBytes];
    std::to_chars_result result{digits, {}};
    if (radix == 10) {
        result = std::to_chars(digits, digits + sizeof digits, value);
    } else if (radix >= 2 && radix <= 36) {
        using Unsigned = std::make_unsigned_t<Number>;
        result = std::to_chars(digits, digits + sizeof digits, static_cast<Unsigned>(value), radix);
    } else {
        errno = EINVAL;
    }
    Unit* to = buffer;
    for (const char* from = digits; from != result.ptr; ++from) {
        *to++ = static_cast<Unit>(*from);
    }
    *to = 0;
    return buffer;
}

// The locale's decimal point, as strtod wants it and as one unit of wide text.
struct DecimalPoint
{
    DecimalPoint() : m_narrow(nl_langinfo(RADIXCHAR))
    {
        const KeepErrno keepErrno;
        std::mbstate_t state{};
        wchar_t wide = L'.';
        std::mbrtowc(&wide, m_narrow.data(), m_narrow.size(), &state);
        m_wide = static_cast<WCHAR>(wide);
    }

    std::string_view m_narrow;
    WCHAR m_wide;
};

// What strtod can make use of, in any form of a number.
bool MayBeInNumber(WCHAR unit)
{
    return DigitOf(unit) < 36 || unit == '+' || unit == '-' || unit == '.' || unit == '(' ||
           unit == ')' || unit == '_';
}

} // namespace

int _wtoi(const WCHAR* text)
{
    return Parse<int, WCHAR>(text, nullptr, 10);
}

std::int64_t _wtoi64(const WCHAR* text)
{
    return Parse<std::int64_t, WCHAR>(text, nullptr, 10);
}

char* _ltoa(LONG value, char* buffer, int radix)
{
    return Format(value, buffer, radix);
}

WCHAR* _ltow(LONG value, WCHAR* buffer, int radix)
{
    return Format(value, buffer, radix);
}

char* _i64toa(std::int64_t value, char* buffer, int radix)
{
    return Format(value, buffer, radix);
}

WCHAR* _i64tow(std::int64_t value, WCHAR* buffer, int radix)
{
    return Format(value, buffer, radix);
}

int atoi(const char* text)
{
    return Parse<int, char>(text, nullptr, 10);
}

LONG strtol(const char* text, char** end, int base)
{
    return Parse<LONG>(text, end, base);
}

ULONG strtoul(const char* text, char** end, int base)
{
    return Parse<ULONG>(text, end, base);
}

LONG wcstol(const WCHAR* text, WCHAR** end, int base)
{
    return Parse<LONG>(text, end, base);
}

ULONG wcstoul(const WCHAR* text, WCHAR** end, int base)
{
    return Parse<ULONG>(text, end, base);
}

std::int64_t wcstoll(const WCHAR* text, WCHAR** end, int base)
{
    return Parse<std::int64_t>(text, end, base);
}

// Narrows what may be the number and leaves the reading of it to strtod.
double wcstod(const WCHAR* text, WCHAR** end)
{
    if (end != nullptr) {
        *end = const_cast<WCHAR*>(text);
    }
    const DecimalPoint point;
    const WCHAR* start = text;
    while (iswspace(*start)) {
        ++start;
    }
    const WCHAR* stop = start;
    while (MayBeInNumber(*stop) || *stop == point.m_wide) {
        ++stop;
    }

    char small[256];
    std::unique_ptr<char[]> large;
    char* narrow = small;
    const std::size_t most = static_cast<std::size_t>(stop - start) * point.m_narrow.size() + 1;
    if (most > sizeof small) {
        large.reset(new (std::nothrow) char[most]);
        if (!large) {
            errno = ENOMEM;
            return 0;
        }
        narrow = large.get();
    }
    char* to = narrow;
    for (const WCHAR* from = start; from != stop; ++from) {
        if (*from == point.m_wide) {
            to += point.m_narrow.copy(to, point.m_narrow.size());
        } else {
            *to++ = static_cast<char>(*from);
        }
    }
    *to = 0;

    char* narrowEnd = nullptr;
    const double number = std::strtod(narrow, &narrowEnd);
    if (narrowEnd == narrow) {
        return 0;
    }
    if (end != nullptr) {
        // The point may have more bytes than one, and a number has at most one point.
        const std::string_view used(narrow, static_cast<std::size_t>(narrowEnd - narrow));
        const bool hasPoint = used.find(point.m_narrow) != std::string_view::npos;
        *end = const_cast<WCHAR*>(start + used.size() - (hasPoint ? point.m_narrow.size() - 1 : 0));
    }
    return number;
}

} // namespace qv::platform
