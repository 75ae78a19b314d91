#include "text/encoding_converter.h"

#include <qvcore6/encoding.h>
#include <unicode/putil.h>
#include <unicode/uclean.h>
#include <unicode/ucnv_err.h>
#include <unicode/utf16.h>

#include <atomic>
#include <cstdio>
#include <cstring>

#include "platform/error.h"
#include "platform/locale.h"
#include "platform/section_hold.h"
#include "text/encoding_pool.h"

using namespace qv;
using namespace qv::core;

namespace
{

// Below 0 until QVEncUtilInit.
constinit std::atomic<int32_t> g_encConverterCount{-1};

constexpr char kLastResort[] = "ISO-8859-1";

// For names that ICU has refused.
constexpr struct
{
    const char* name;
    const char* instead;
} kAliases[] = {
    {"UTF-8", "UTF-8"}, {"CP1252", "windows-1252"}, {"CP932", "shift_jis"}, {"SJIS", "shift_jis"}};

// ICU counts the users of a charset's table under a lock of its own.
UConverter* OpenIcu(const char* name)
{
    const platform::SectionHold locked(&platform::g_localeLock);
    UErrorCode status = U_ZERO_ERROR;
    return ucnv_open(name, &status);
}

void TellNotOpen(const char* name)
{
    std::printf("%s: Could not open converter\n", name);
}

UConverter* OpenDefault()
{
    if (g_encConverterCount.load(std::memory_order_relaxed) < 0) {
        return nullptr;
    }
    UConverter* const converter = OpenIcu(nullptr);
    if (converter == nullptr) {
        TellNotOpen("default");
    }
    return converter;
}

UConverter* OpenNamed(const char* name)
{
    if (UConverter* const converter = OpenIcu(name)) {
        return converter;
    }
    for (const auto& alias : kAliases) {
        if (std::strcmp(alias.name, name) == 0) {
            return OpenIcu(alias.instead);
        }
    }
    return nullptr;
}

UConverter* OpenByName(const QVWChar* encodingName, bool& isNamed)
{
    char name[128];
    std::size_t length = 0;
    for (; encodingName[length] != 0 && length < sizeof name; ++length) {
        name[length] = static_cast<char>(encodingName[length]);
    }
    UConverter* converter = nullptr;
    // No charset has a longer one: cut, it could be another's.
    if (length < sizeof name) {
        name[length] = 0;
        converter = OpenNamed(name);
    }
    isNamed = converter != nullptr;
    if (converter == nullptr) {
        converter = OpenIcu(kLastResort);
    }
    if (converter == nullptr) {
        std::printf("No converter for %s\n", kLastResort);
        TellNotOpen(kLastResort);
    }
    return converter;
}

// ICU takes any limit behind a null pointer for real.
template <class Unit> bool IsBuffer(Unit* const* start, const void* limit)
{
    return start != nullptr && (*start != nullptr || limit == nullptr);
}

template <class Call, class From, class To>
QVRESULT Convert(Call call, UConverter* converter, const From** source, const From* sourceLimit,
                 To** target, const To* targetLimit, bool isLast)
{
    if (converter == nullptr) {
        return QV_E_CONVERTER_NOT_OPEN;
    }
    if (!IsBuffer(source, sourceLimit) || !IsBuffer(target, targetLimit)) {
        return E_FAIL;
    }
    UErrorCode status = U_ZERO_ERROR;
    call(converter, target, targetLimit, source, sourceLimit, nullptr, isLast, &status);
    return ResultOf(status);
}

} // namespace

int32_t QVEncUtilInit(const char* dataDirectory)
{
    EmptyEncodingPool(); // other data may have other charsets
    const platform::SectionHold locked(&platform::g_localeLock);
    u_setDataDirectory(dataDirectory);
    UErrorCode ignored = U_ZERO_ERROR;
    u_init(&ignored);
    const int32_t count = ucnv_countAvailable();
    g_encConverterCount.store(count, std::memory_order_relaxed);
    return count;
}

bool QVEncConverter::Open(const QVWChar* encodingName)
{
    const platform::KeepErrno keepErrno;
    bool isNamed = false;
    m_converter = encodingName != nullptr ? OpenByName(encodingName, isNamed) : OpenDefault();
    return isNamed;
}

void QVEncConverter::Close()
{
    if (m_converter != nullptr) {
        const platform::SectionHold locked(&platform::g_localeLock);
        ucnv_close(m_converter);
    }
}

void QVEncConverter::Reset()
{
    ucnv_reset(m_converter);
}

QVRESULT QVEncConverter::SetSubstitutionChar(int32_t character)
{
    constexpr int32_t kBeyond = 0x10FFFF;
    constexpr UChar kReplacement = 0xFFFD;
    if (character >= kBeyond) {
        return QV_E_INVALID_CHAR;
    }
    if (m_converter == nullptr) {
        return character < 0 ? QV_E_CONVERTER_NOT_OPEN : E_FAIL;
    }
    UErrorCode status = U_ZERO_ERROR;
    if (character < 0) {
        ucnv_setToUCallBack(m_converter, UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr,
                            &status);
        ucnv_setFromUCallBack(m_converter, UCNV_FROM_U_CALLBACK_STOP, nullptr, nullptr, nullptr,
                              &status);
        return U_FAILURE(status) ? E_ABORT : S_OK;
    }
    UChar units[2] = {kReplacement};
    int32_t count = 1;
    if (character > 0xFFFF) {
        units[0] = U16_LEAD(character);
        units[1] = U16_TRAIL(character);
        count = 2;
    } else if (character != 0) {
        units[0] = static_cast<UChar>(character);
    }
    // It makes and closes a copy of the converter.
    const platform::SectionHold locked(&platform::g_localeLock);
    ucnv_setSubstString(m_converter, units, count, &status);
    return ResultOf(status);
}

QVRESULT QVEncConverter::ToW(const char** source, const char* sourceLimit, QVWChar** target,
                             const QVWChar* targetLimit, bool isLast)
{
    return Convert(ucnv_toUnicode, m_converter, source, sourceLimit, target, targetLimit, isLast);
}

QVRESULT QVEncConverter::FromW(const QVWChar** source, const QVWChar* sourceLimit, char** target,
                               const char* targetLimit, bool isLast)
{
    return Convert(ucnv_fromUnicode, m_converter, source, sourceLimit, target, targetLimit, isLast);
}

QVRESULT qv::core::ResultOf(UErrorCode status)
{
    switch (status) {
    case U_INVALID_CHAR_FOUND:
    case U_TRUNCATED_CHAR_FOUND:
    case U_ILLEGAL_CHAR_FOUND:
        return QV_E_INVALID_CHAR;
    case U_BUFFER_OVERFLOW_ERROR:
        return QV_E_BUFFER_TOO_SMALL;
    default:
        return U_SUCCESS(status) ? S_OK : E_FAIL;
    }
}
