// The runtime library's calls on 16-bit wide text, and the narrow ones that this platform's C
// library has not, or has with other types (its long has 64 bits here, the platform's has 32).
//
// Calls whose names the C library uses for its own wide type have C++ linkage, which keeps the two
// apart. What a call promises about errno (ERANGE, EINVAL, EILSEQ) it stores there; otherwise errno
// stays. Case and classes are the C library's, unit by unit, under the process's locale; the case
// of ASCII letters is the same in every locale, and a surrogate stays as it is.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/types.h"

namespace qv::platform
{

extern "C"
{
    // The difference of the first units that differ when folded to lower case, or 0.
    int _stricmp(const char* first, const char* second);
    int _strnicmp(const char* first, const char* second, std::size_t count);
    int _wcsicmp(const WCHAR* first, const WCHAR* second);
    int _wcsnicmp(const WCHAR* first, const WCHAR* second, std::size_t count);

    // In place; units that need no change are not written. Result: the text.
    char* _strlwr(char* text);
    char* _strupr(char* text);
    WCHAR* _wcslwr(WCHAR* text);
    WCHAR* _wcsupr(WCHAR* text);

    // Saturate at the limits of the type, with ERANGE.
    int _wtoi(const WCHAR* text);
    std::int64_t _wtoi64(const WCHAR* text);

    // Radix 2 to 36, digits in lower case, a minus with radix 10 alone. Any other radix gives the
    // empty text and EINVAL. The buffer holds up to 33 units, or 65. Result: the buffer.
    char* _ltoa(LONG value, char* buffer, int radix);
    WCHAR* _ltow(LONG value, WCHAR* buffer, int radix);
    char* _i64toa(std::int64_t value, char* buffer, int radix);
    WCHAR* _i64tow(std::int64_t value, WCHAR* buffer, int radix);
}

// One byte, sign-extended for the C library: 0xFF is its EOF, in no class and without another case.
// The bytes of a text (above) all count.
char tolower(char byte);
char toupper(char byte);
bool isalpha(char byte);
bool isdigit(char byte);
bool isspace(char byte);

WCHAR towlower(WCHAR unit);
WCHAR towupper(WCHAR unit);
bool iswalpha(WCHAR unit);
bool iswdigit(WCHAR unit);
bool iswspace(WCHAR unit);

// ASCII digits and letters. Out of range: the nearest limit and ERANGE. No number, or a base other
// than 0 and 2 to 36 (EINVAL): 0, and *end is the text's start. A null end is allowed.
int atoi(const char* text);
LONG strtol(const char* text, char** end, int base);
ULONG strtoul(const char* text, char** end, int base);
LONG wcstol(const WCHAR* text, WCHAR** end, int base);
ULONG wcstoul(const WCHAR* text, WCHAR** end, int base);
std::int64_t wcstoll(const WCHAR* text, WCHAR** end, int base);
// With the locale's decimal point. ENOMEM (result 0, *end the start) is possible above 250 units.
double wcstod(const WCHAR* text, WCHAR** end);

inline constexpr std::size_t kConversionFailed = static_cast<std::size_t>(-1);

// In the process's locale, until the terminator. Result: units or bytes without the terminator,
// which is stored if it fits; kConversionFailed and EILSEQ at what the locale cannot convert. A
// null dest counts. A character that does not fit whole is not begun.
std::size_t mbstowcs(WCHAR* dest, const char* src, std::size_t size);
std::size_t wcstombs(char* dest, const WCHAR* src, std::size_t size);

} // namespace qv::platform
