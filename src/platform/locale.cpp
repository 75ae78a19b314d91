#include "platform/locale.h"

#include <langinfo.h>
#include <locale.h>
#include <unicode/ucnv.h>
#include <unicode/ustring.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>
#include <string_view>
#include <type_traits>

#include "platform/error.h"
#include "platform/section_hold.h"
#include "platform/wide_text_multibyte.h"

namespace qv::platform
{

constinit CRITICAL_SECTION g_localeLock{};

namespace
{

constexpr WCHAR kReplacement = 0xFFFD;

struct FreeLocale
{
    void operator()(locale_t locale) const
    {
        const SectionHold locked(&g_localeLock);
        freelocale(locale);
    }
};
using LocaleHolder = std::unique_ptr<std::remove_pointer_t<locale_t>, FreeLocale>;

// Of the environment; null with errno.
LocaleHolder MakeLocale()
{
    const SectionHold locked(&g_localeLock);
    return LocaleHolder(newlocale(LC_CTYPE_MASK, "", nullptr));
}

struct CloseConverter
{
    void operator()(UConverter* converter) const
    {
        const SectionHold locked(&g_localeLock);
        ucnv_close(converter);
    }
};
using Converter = std::unique_ptr<UConverter, CloseConverter>;

Converter OpenConverter(const char* charset, UErrorCode& status)
{
    const SectionHold locked(&g_localeLock);
    return Converter(ucnv_open(charset, &status));
}

bool IsUtf8(const AnsiCharset& charset)
{
    return std::string_view(charset.name) == "UTF-8";
}

// False if memory ran out: then the answer is not to be kept.
bool ReadEnvironment(AnsiCharset& charset)
{
    charset = {"US-ASCII"}; // of "C", which a locale that is not installed leaves in place
    const LocaleHolder locale = MakeLocale();
    if (!locale) {
        return errno != ENOMEM;
    }
    std::strncpy(charset.name, nl_langinfo_l(CODESET, locale.get()), sizeof charset.name - 1);
    return true;
}

enum class Fixed
{
    No,
    InWork,
    Yes
};
constinit std::atomic<Fixed> g_fixed{Fixed::No};
constinit AnsiCharset g_charset{};

} // namespace

// Nobody waits for the thread that fixes it: the others read the environment for themselves.
AnsiCharset ReadAnsiCharset()
{
    if (g_fixed.load(std::memory_order_acquire) == Fixed::Yes) {
        return g_charset;
    }
    AnsiCharset charset;
    Fixed no = Fixed::No;
    if (ReadEnvironment(charset) && g_fixed.compare_exchange_strong(no, Fixed::InWork)) {
        g_charset = charset;
        g_fixed.store(Fixed::Yes, std::memory_order_release);
    }
    return charset;
}

namespace
{

// Both return the whole length that the text needs, also when it did not fit.
std::int32_t ConvertUtf8(WCHAR* dest, int size, const char* src, int count, UErrorCode& status)
{
    std::int32_t needed = 0;
    u_strFromUTF8WithSub(dest, size, &needed, src, count, kReplacement, nullptr, &status);
    return needed;
}

std::int32_t ConvertUtf8(char* dest, int size, const WCHAR* src, int count, UErrorCode& status)
{
    std::int32_t needed = 0;
    u_strToUTF8WithSub(dest, size, &needed, src, count, kReplacement, nullptr, &status);
    return needed;
}

std::int32_t ConvertBy(UConverter* converter, WCHAR* dest, int size, const char* src, int count,
                       UErrorCode& status)
{
    // Converters with a substitute of one byte would give U+001A for an invalid one.
    ucnv_setSubstChars(converter, "?", 1, &status);
    return ucnv_toUChars(converter, dest, size, src, count, &status);
}

std::int32_t ConvertBy(UConverter* converter, char* dest, int size, const WCHAR* src, int count,
                       UErrorCode& status)
{
    ucnv_setSubstChars(converter, "?", 1, &status);
    return ucnv_fromUChars(converter, dest, size, src, count, &status);
}

// The C library loads them at the first use, with its lock.
void LoadConversions(locale_t locale)
{
    const SectionHold locked(&g_localeLock);
    if (locale != nullptr) {
        const locale_t before = uselocale(locale);
        DecodeCharacter("a", 1);
        EncodeCharacter(u"a", 1);
        uselocale(before);
    }
}

// Made once and kept, for the few charsets that ICU has no converter for: the C library loses some
// memory for each locale that it makes under a LOCPATH. Null if memory ran out.
constinit std::atomic<locale_t> g_locale{nullptr};

locale_t AnsiLocale()
{
    locale_t locale = g_locale.load(std::memory_order_acquire);
    if (locale == nullptr) {
        LocaleHolder made = MakeLocale();
        LoadConversions(made.get());
        if (g_locale.compare_exchange_strong(locale, made.get())) {
            locale = made.release();
        }
    }
    return locale;
}

// This thread's locale is the environment's while one lives.
class InAnsiLocale
{
public:
    InAnsiLocale() : m_before(nullptr)
    {
        if (const locale_t locale = AnsiLocale(); locale != nullptr) {
            m_before = uselocale(locale);
        }
    }
    ~InAnsiLocale()
    {
        if (m_before != nullptr) {
            uselocale(m_before);
        }
    }
    InAnsiLocale(const InAnsiLocale&) = delete;
    InAnsiLocale& operator=(const InAnsiLocale&) = delete;
    bool IsIn() const { return m_before != nullptr; }

private:
    locale_t m_before;
};

DecodedCharacter NextCharacter(const char* src, std::size_t count)
{
    const DecodedCharacter next = DecodeCharacter(src, count);
    return next.taken != kConversionFailed ? next : DecodedCharacter{1, 1, {kReplacement, 0}};
}

EncodedCharacter NextCharacter(const WCHAR* src, std::size_t count)
{
    const EncodedCharacter next = EncodeCharacter(src, count);
    return next.made != kConversionFailed ? next : EncodedCharacter{next.taken, 1, {'?'}};
}

template <class To, class From>
std::int32_t ConvertInLocale(To* dest, int size, const From* src, int count, UErrorCode& status)
{
    const InAnsiLocale locale;
    if (!locale.IsIn()) {
        status = U_MEMORY_ALLOCATION_ERROR;
        return 0;
    }
    std::int64_t needed = 0;
    for (const From* const end = src + count; src != end;) {
        const auto next = NextCharacter(src, static_cast<std::size_t>(end - src));
        for (std::size_t i = 0; i < next.made; ++i, ++needed) {
            if (needed < size) {
                dest[needed] = next.text[i];
            }
        }
        src += next.taken;
    }
    status = needed > INT_MAX ? U_INDEX_OUTOFBOUNDS_ERROR
             : needed > size  ? U_BUFFER_OVERFLOW_ERROR
                              : U_ZERO_ERROR;
    return static_cast<std::int32_t>(needed);
}

template <class To, class From>
std::int32_t Convert(To* dest, int size, const From* src, int count, UErrorCode& status)
{
    const AnsiCharset charset = ReadAnsiCharset();
    if (IsUtf8(charset)) {
        return ConvertUtf8(dest, size, src, count, status);
    }
    // Opened for each call: ICU keeps the tables, and nothing of ours outlives the library.
    const Converter converter = OpenConverter(charset.name, status);
    if (converter) {
        return ConvertBy(converter.get(), dest, size, src, count, status);
    }
    if (status == U_MEMORY_ALLOCATION_ERROR) {
        return 0;
    }
    status = U_ZERO_ERROR;
    return ConvertInLocale(dest, size, src, count, status);
}

int Fail(DWORD error)
{
    SetLastError(error);
    return 0;
}

template <class To, class From>
int ConvertAnsi(const From* src, int srcSize, To* dest, int destSize)
{
    const KeepErrno keepErrno;
    if (src == nullptr || srcSize == 0 || srcSize < -1 || destSize < 0 ||
        (dest == nullptr && destSize != 0)) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    if (srcSize == -1) {
        const std::size_t length = std::char_traits<From>::length(src) + 1;
        if (length > INT_MAX) {
            return Fail(ERROR_INVALID_PARAMETER);
        }
        srcSize = static_cast<int>(length);
    }
    UErrorCode status = U_ZERO_ERROR;
    const std::int32_t needed =
        Convert(destSize == 0 ? nullptr : dest, destSize, src, srcSize, status);
    if (status == U_BUFFER_OVERFLOW_ERROR) {
        return destSize == 0 ? needed : Fail(ERROR_INSUFFICIENT_BUFFER);
    }
    if (U_FAILURE(status)) {
        return Fail(status == U_MEMORY_ALLOCATION_ERROR ? ERROR_OUTOFMEMORY
                                                        : ERROR_INVALID_PARAMETER);
    }
    return needed;
}

} // namespace

int AnsiToWide(const char* src, int srcSize, WCHAR* dest, int destSize)
{
    const KeepErrno keepErrno;
    UErrorCode status = U_ZERO_ERROR;
    const std::int32_t needed = Convert(dest, destSize, src, srcSize, status);
    return U_SUCCESS(status) || status == U_BUFFER_OVERFLOW_ERROR ? needed : -1;
}

int MultiByteToWideChar(DWORD page, DWORD flags, const char* src, int srcSize, WCHAR* dest,
                        int destSize)
{
    if (page != CP_ACP || flags != 0) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    return ConvertAnsi(src, srcSize, dest, destSize);
}

int WideCharToMultiByte(DWORD page, DWORD flags, const WCHAR* src, int srcSize, char* dest,
                        int destSize, const char* defaultChar, BOOL* usedDefaultChar)
{
    if (page != CP_ACP || flags != 0 || defaultChar != nullptr || usedDefaultChar != nullptr) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    return ConvertAnsi(src, srcSize, dest, destSize);
}

} // namespace qv::platform
