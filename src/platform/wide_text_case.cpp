#include <cctype>
#include <cwctype>

#include "platform/wide_text.h"

namespace qv::platform
{

namespace
{

constexpr bool IsAscii(WCHAR unit)
{
    return unit <= 0x7F;
}

constexpr bool IsSurrogate(WCHAR unit)
{
    return (unit & 0xF800) == 0xD800;
}

// In a text a byte counts by its unsigned value.
constexpr int Value(char byte)
{
    return static_cast<unsigned char>(byte);
}

constexpr int Value(WCHAR unit)
{
    return unit;
}

// A byte that comes alone is sign-extended. The C library here knows -128 to -2 as 0x80 to 0xFE;
// -1 is EOF to it, so byte 0xFF is in no class and has no other case, whatever the charset.
constexpr int Character(char byte)
{
    return static_cast<signed char>(byte);
}

// A mapping out of the 16 bits of a unit cannot be stored.
template <class Mapping> WCHAR Map(WCHAR unit, Mapping mapping)
{
    if (IsSurrogate(unit)) {
        return unit;
    }
    const std::wint_t mapped = mapping(static_cast<std::wint_t>(unit));
    return mapped <= 0xFFFF ? static_cast<WCHAR>(mapped) : unit;
}

// The case of ASCII letters does not depend on the locale, so that names compare alike everywhere.
char Lower(char byte)
{
    if (Value(byte) > 0x7F) {
        return static_cast<char>(std::tolower(Value(byte)));
    }
    return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte + ('a' - 'A')) : byte;
}

char Upper(char byte)
{
    if (Value(byte) > 0x7F) {
        return static_cast<char>(std::toupper(Value(byte)));
    }
    return byte >= 'a' && byte <= 'z' ? static_cast<char>(byte - ('a' - 'A')) : byte;
}

WCHAR Lower(WCHAR unit)
{
    return IsAscii(unit) ? static_cast<WCHAR>(Lower(static_cast<char>(unit))) : towlower(unit);
}

WCHAR Upper(WCHAR unit)
{
    return IsAscii(unit) ? static_cast<WCHAR>(Upper(static_cast<char>(unit))) : towupper(unit);
}

template <class Unit> int Compare(const Unit* first, const Unit* second, std::size_t count)
{
    for (; count != 0; ++first, ++second, --count) {
        if (*first != *second) {
            const int difference = Value(Lower(*first)) - Value(Lower(*second));
            if (difference != 0) {
                return difference;
            }
        }
        if (*first == 0) {
            return 0;
        }
    }
    return 0;
}

template <class Unit, class Mapping> Unit* MapAll(Unit* text, Mapping mapping)
{
    for (Unit* at = text; *at != 0; ++at) {
        const Unit mapped = mapping(*at);
        if (mapped != *at) {
            *at = mapped;
        }
    }
    return text;
}

constexpr std::size_t kNoLimit = static_cast<std::size_t>(-1);

} // namespace

int _stricmp(const char* first, const char* second)
{
    return Compare(first, second, kNoLimit);
}

int _strnicmp(const char* first, const char* second, std::size_t count)
{
    return Compare(first, second, count);
}

int _wcsicmp(const WCHAR* first, const WCHAR* second)
{
    return Compare(first, second, kNoLimit);
}

int _wcsnicmp(const WCHAR* first, const WCHAR* second, std::size_t count)
{
    return Compare(first, second, count);
}

char* _strlwr(char* text)
{
    return MapAll(text, [](char byte) { return Lower(byte); });
}

char* _strupr(char* text)
{
    return MapAll(text, [](char byte) { return Upper(byte); });
}

WCHAR* _wcslwr(WCHAR* text)
{
    return MapAll(text, [](WCHAR unit) { return Lower(unit); });
}

WCHAR* _wcsupr(WCHAR* text)
{
    return MapAll(text, [](WCHAR unit) { return Upper(unit); });
}

char tolower(char byte)
{
    return static_cast<char>(std::tolower(Character(byte)));
}

char toupper(char byte)
{
    return static_cast<char>(std::toupper(Character(byte)));
}

bool isalpha(char byte)
{
    return std::isalpha(Character(byte)) != 0;
}

bool isdigit(char byte)
{
    return std::isdigit(Character(byte)) != 0;
}

bool isspace(char byte)
{
    return std::isspace(Character(byte)) != 0;
}

WCHAR towlower(WCHAR unit)
{
    return Map(unit, [](std::wint_t character) { return std::towlower(character); });
}

WCHAR towupper(WCHAR unit)
{
    return Map(unit, [](std::wint_t character) { return std::towupper(character); });
}

bool iswalpha(WCHAR unit)
{
    return !IsSurrogate(unit) && std::iswalpha(unit) != 0;
}

bool iswdigit(WCHAR unit)
{
    return std::iswdigit(unit) != 0;
}

bool iswspace(WCHAR unit)
{
    return std::iswspace(unit) != 0;
}

} // namespace qv::platform
