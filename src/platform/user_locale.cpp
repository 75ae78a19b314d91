#include "platform/user_locale.h"

#include <unicode/uloc.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "platform/locale.h"

namespace qv::platform
{

namespace
{

// By the letters and digits of the C library's name in capitals. Not the exact page where ICU
// knows no "CP" of that number (20127, 28592, 20866, 54936): it would be taken for Latin-1.
constexpr struct
{
    std::string_view charset;
    UINT page;
} kPages[] = {
    {"UTF8", 65001},      {"ISO88592", 1250},     {"ISO885916", 1250}, {"ISO88595", 1251},
    {"KOI8R", 1251},      {"KOI8U", 1251},        {"KOI8T", 1251},     {"PT154", 1251},
    {"RK1048", 1251},     {"ISO88597", 1253},     {"ISO88599", 1254},  {"ISO88598", 1255},
    {"ISO88596", 1256},   {"ISO88594", 1257},     {"ISO885910", 1257}, {"ISO885913", 1257},
    {"TCVN57121", 1258},  {"ISO885911", 874},     {"TIS620", 874},     {"SJIS", 932},
    {"SHIFTJIS", 932},    {"SHIFTJISX0213", 932}, {"WINDOWS31J", 932}, {"EUCJP", 932},
    {"EUCJISX0213", 932}, {"GB2312", 936},        {"GBK", 936},        {"GB18030", 936},
    {"EUCKR", 949},       {"UHC", 949},           {"JOHAB", 949},      {"BIG5", 950},
    {"BIG5HKSCS", 950},   {"EUCTW", 950},
};
// These have a "CP" of their own.
constexpr UINT kOwnPages[] = {874,  932,  936,  949,  950,  1250, 1251,
                              1252, 1253, 1254, 1255, 1256, 1257, 1258};
constexpr UINT kLatin = 1252;

constexpr LCID kInvariant = 0x7F;
constexpr LCID kEnglish = 0x409;

UINT PageOf(std::string_view charset)
{
    char name[sizeof AnsiCharset::name];
    std::size_t length = 0;
    for (const char character : charset) {
        if ((character >= '0' && character <= '9') || (character >= 'A' && character <= 'Z')) {
            name[length++] = character;
        } else if (character >= 'a' && character <= 'z') {
            name[length++] = static_cast<char>(character - 'a' + 'A');
        }
    }
    const std::string_view letters(name, length);
    for (const auto& row : kPages) {
        if (row.charset == letters) {
            return row.page;
        }
    }
    if (letters.starts_with("CP") && length <= 6) {
        UINT number = 0;
        for (const char digit : letters.substr(2, 4)) {
            number = 10 * number + static_cast<UINT>(digit - '0');
        }
        for (const UINT page : kOwnPages) {
            if (page == number) {
                return page;
            }
        }
    }
    return kLatin;
}

// The variable's language and country, without charset and modifier.
LCID NumberOf(const char* variable)
{
    char name[32] = {};
    const std::size_t length = std::strcspn(variable, ".@");
    if (length >= sizeof name) {
        return kEnglish;
    }
    std::memcpy(name, variable, length);
    const std::string_view language = name;
    if (language.empty() || language == "C" || language == "POSIX") {
        return kInvariant;
    }
    const LCID number = uloc_getLCID(name);
    return number != 0 ? number : kEnglish;
}

LCID ReadEnvironment()
{
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* const variable = std::getenv(name);
        if (variable != nullptr && *variable != 0) {
            return NumberOf(variable);
        }
    }
    return kInvariant;
}

// 0 until the first call; no locale has that number here.
constinit std::atomic<LCID> g_user{0};

} // namespace

UINT GetACP()
{
    return PageOf(ReadAnsiCharset().name);
}

LCID GetUserDefaultLCID()
{
    LCID user = g_user.load(std::memory_order_relaxed);
    if (user == 0) {
        const LCID now = ReadEnvironment();
        user = g_user.compare_exchange_strong(user, now, std::memory_order_relaxed) ? now : user;
    }
    return user;
}

} // namespace qv::platform
