#include <qvcore6/str.h>

#include <cerrno>
#include <cstdlib>

#include "platform/wide_text.h"

using namespace qv;

namespace
{

// The C library leaves *end alone for a base that it refuses; callers use it all the same.
bool IsRefused(int32_t base, const char* text, char** end)
{
    if (base == 0 || (base >= 2 && base <= 36)) {
        return false;
    }
    if (end != nullptr) {
        *end = const_cast<char*>(text);
    }
    errno = EINVAL;
    return true;
}

} // namespace

int32_t QVStrToLA(const char* s, char** end, int32_t base)
{
    return platform::strtol(s, end, base);
}

int32_t QVStrToLW(const QVWChar* s, QVWChar** end, int32_t base)
{
    return platform::wcstol(s, end, base);
}

int64_t QVStrToLLA(const char* s, char** end, int32_t base)
{
    return IsRefused(base, s, end) ? 0 : std::strtoll(s, end, base);
}

int64_t QVStrToLLW(const QVWChar* s, QVWChar** end, int32_t base)
{
    return platform::wcstoll(s, end, base);
}

uint32_t QVStrToULA(const char* s, char** end, int32_t base)
{
    return platform::strtoul(s, end, base);
}

uint32_t QVStrToULW(const QVWChar* s, QVWChar** end, int32_t base)
{
    return platform::wcstoul(s, end, base);
}

uint64_t QVStrToULLA(const char* s, char** end, int32_t base)
{
    return IsRefused(base, s, end) ? 0 : std::strtoull(s, end, base);
}

double QVStrToDA(const char* s, char** end)
{
    return std::strtod(s, end);
}

double QVStrToDW(const QVWChar* s, QVWChar** end)
{
    return platform::wcstod(s, end);
}

int32_t QVStrToIA(const char* s)
{
    return platform::atoi(s);
}

int32_t QVStrToIW(const QVWChar* s)
{
    return platform::_wtoi(s);
}

int64_t QVStrToI64W(const QVWChar* s)
{
    return platform::_wtoi64(s);
}

char* QVLToStrA(int32_t value, char* buffer, int32_t radix)
{
    return platform::_ltoa(value, buffer, radix);
}

QVWChar* QVLToStrW(int32_t value, QVWChar* buffer, int32_t radix)
{
    return platform::_ltow(value, buffer, radix);
}

char* QVInt64ToStrA(int64_t value, char* buffer, int32_t radix)
{
    return platform::_i64toa(value, buffer, radix);
}

QVWChar* QVInt64ToStrW(int64_t value, QVWChar* buffer, int32_t radix)
{
    return platform::_i64tow(value, buffer, radix);
}
