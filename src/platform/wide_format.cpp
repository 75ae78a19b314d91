#include "platform/wide_format.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "platform/locale.h"
#include "platform/wide_format_parse.h"
#include "platform/wide_format_show.h"
#include "platform/wide_writer.h"

namespace qv::platform
{

namespace
{

constexpr std::u16string_view kNullText = u"(null)";
constexpr WCHAR kReplacement = 0xFFFD;

// In an object, because a va_list that is an argument itself cannot be passed on to be advanced.
class Arguments
{
public:
    explicit Arguments(va_list list) { va_copy(m_list, list); }
    ~Arguments() { va_end(m_list); }
    Arguments(const Arguments&) = delete;
    Arguments& operator=(const Arguments&) = delete;

    template <class T> T Next() { return va_arg(m_list, T); }

private:
    va_list m_list;
};

class Formatter
{
public:
    Formatter(WideWriter& out, va_list arguments) : m_out(out), m_arguments(arguments) {}

    void Run(const WCHAR* format);

private:
    void Resolve();
    void Convert();
    void Integer();
    void Pointer();
    void Floating();
    void Text();
    void Unit();
    void Wide(const WCHAR* text);
    void Narrow(const char* text);

    std::int64_t NextSigned();
    std::uint64_t NextUnsigned();
    bool IsNarrow() const;
    std::size_t Width() const { return static_cast<std::size_t>(m_conversion.width); }
    // How much of a text can matter: what the buffer shows, or what the padding depends on.
    std::size_t MostUnits() const { return std::max(m_out.Room() + 1, Width()); }
    std::size_t WithinPrecision(std::size_t most) const;

    WideWriter& m_out;
    Arguments m_arguments;
    Conversion m_conversion;
};

std::size_t LengthUpTo(const WCHAR* text, std::size_t most)
{
    const WCHAR* end = text;
    while (most-- != 0 && *end != 0) {
        ++end;
    }
    return static_cast<std::size_t>(end - text);
}

void Formatter::Run(const WCHAR* format)
{
    while (*format != 0 && !m_out.IsCut()) {
        const WCHAR* at = format;
        while (*at != 0 && *at != u'%') {
            ++at;
        }
        m_out.Write({format, static_cast<std::size_t>(at - format)});
        if (*at == 0) {
            return;
        }
        m_conversion = {};
        format = ParseConversion(at + 1, &m_conversion);
        if (m_conversion.letter == 0) {
            m_out.Write({at, LengthUpTo(at, m_out.Room() + 1)});
            return;
        }
        Resolve();
        Convert();
    }
}

void Formatter::Resolve()
{
    Conversion& c = m_conversion;
    if (c.widthIsArgument) {
        c.width = m_arguments.Next<int>();
        if (c.width < 0) {
            c.left = true;
            c.width = c.width == INT_MIN ? INT_MAX : -c.width;
        }
    }
    if (c.precisionIsArgument) {
        c.precision = std::max(m_arguments.Next<int>(), -1);
    }
}

void Formatter::Convert()
{
    switch (m_conversion.letter) {
    case u's':
    case u'S':
        Text();
        break;
    case u'c':
    case u'C':
        Unit();
        break;
    case u'p':
        Pointer();
        break;
    case u'n':
        m_arguments.Next<void*>();
        break;
    case u'%':
        m_out.Write(u'%');
        break;
    case u'd':
    case u'i':
    case u'o':
    case u'u':
    case u'x':
    case u'X':
        Integer();
        break;
    default:
        Floating();
    }
}

// In the order of ArgumentSize.
constexpr std::size_t kBytesOf[] = {
    sizeof(int), sizeof(char),  sizeof(short),       sizeof(long),          8,
    4,           sizeof(void*), sizeof(std::size_t), sizeof(std::intmax_t), sizeof(std::ptrdiff_t),
    8,           sizeof(int),
};

// Arguments of one size lie alike, whatever their type is called.
std::int64_t Formatter::NextSigned()
{
    switch (kBytesOf[static_cast<std::size_t>(m_conversion.size)]) {
    case sizeof(signed char):
        return static_cast<signed char>(m_arguments.Next<int>());
    case sizeof(short):
        return static_cast<short>(m_arguments.Next<int>());
    case sizeof(int):
        return m_arguments.Next<int>();
    default:
        return m_arguments.Next<long long>();
    }
}

std::uint64_t Formatter::NextUnsigned()
{
    switch (kBytesOf[static_cast<std::size_t>(m_conversion.size)]) {
    case sizeof(unsigned char):
        return static_cast<unsigned char>(m_arguments.Next<unsigned>());
    case sizeof(unsigned short):
        return static_cast<unsigned short>(m_arguments.Next<unsigned>());
    case sizeof(unsigned):
        return m_arguments.Next<unsigned>();
    default:
        return m_arguments.Next<unsigned long long>();
    }
}

void Formatter::Integer()
{
    if (m_conversion.letter != u'd' && m_conversion.letter != u'i') {
        ShowInteger(m_out, m_conversion, u"", NextUnsigned());
        return;
    }
    const std::int64_t value = NextSigned();
    const std::u16string_view sign = value < 0            ? u"-"
                                     : m_conversion.plus  ? u"+"
                                     : m_conversion.space ? u" "
                                                          : u"";
    const auto magnitude = static_cast<std::uint64_t>(value);
    ShowInteger(m_out, m_conversion, sign, value < 0 ? 0 - magnitude : magnitude);
}

void Formatter::Pointer()
{
    m_conversion.precision = 2 * sizeof(void*);
    ShowInteger(m_out, m_conversion, u"",
                reinterpret_cast<std::uintptr_t>(m_arguments.Next<void*>()));
}

// An extended number is shown as the double next to it: elsewhere the two are one type.
void Formatter::Floating()
{
    ShowFloating(m_out, m_conversion,
                 m_conversion.size == ArgumentSize::kExtended
                     ? static_cast<double>(m_arguments.Next<long double>())
                     : m_arguments.Next<double>());
}

bool Formatter::IsNarrow() const
{
    switch (m_conversion.size) {
    case ArgumentSize::kChar:
    case ArgumentSize::kShort:
        return true;
    case ArgumentSize::kLong:
    case ArgumentSize::k64:
    case ArgumentSize::kWide:
        return false;
    default:
        return m_conversion.letter == u'S' || m_conversion.letter == u'C';
    }
}

std::size_t Formatter::WithinPrecision(std::size_t most) const
{
    return m_conversion.precision < 0
               ? most
               : std::min(most, static_cast<std::size_t>(m_conversion.precision));
}

void Formatter::Text()
{
    if (IsNarrow()) {
        if (const char* const text = m_arguments.Next<const char*>()) {
            Narrow(text);
            return;
        }
    } else if (const WCHAR* const text = m_arguments.Next<const WCHAR*>()) {
        Wide(text);
        return;
    }
    ShowText(m_out, m_conversion, kNullText.substr(0, WithinPrecision(kNullText.size())));
}

void Formatter::Wide(const WCHAR* text)
{
    ShowText(m_out, m_conversion, {text, LengthUpTo(text, WithinPrecision(MostUnits()))});
}

// For a charset whose converter memory is missing for.
std::size_t CopyAscii(const char* text, std::size_t count, WCHAR* dest, std::size_t room)
{
    std::transform(text, text + std::min(count, room), dest, [](char byte) {
        return (byte & 0x80) == 0 ? static_cast<WCHAR>(byte) : kReplacement;
    });
    return count;
}

void Formatter::Narrow(const char* text)
{
    // No charset of a locale takes more bytes for a unit.
    constexpr std::size_t kMostBytes = 8;
    const std::size_t most = std::min<std::size_t>(MostUnits(), INT_MAX / kMostBytes) * kMostBytes;
    const std::size_t count = strnlen(text, WithinPrecision(most));
    const bool isAscii =
        std::none_of(text, text + count, [](char byte) { return (byte & 0x80) != 0; });
    int units = -1;
    if (!isAscii) {
        units = AnsiToWide(text, static_cast<int>(count), m_out.At(),
                           static_cast<int>(std::min<std::size_t>(m_out.Room(), INT_MAX)));
    }
    const std::size_t needed = units >= 0 ? static_cast<std::size_t>(units)
                                          : CopyAscii(text, count, m_out.At(), m_out.Room());
    const std::size_t padding = PaddingFor(m_conversion, needed);
    m_out.Claim(needed, m_conversion.left ? 0 : padding, m_conversion.zero ? u'0' : u' ');
    if (m_conversion.left) {
        m_out.Fill(u' ', padding);
    }
}

void Formatter::Unit()
{
    if (IsNarrow()) {
        const char byte = static_cast<char>(m_arguments.Next<int>());
        WCHAR unit = static_cast<WCHAR>(byte);
        if ((byte & 0x80) != 0 && AnsiToWide(&byte, 1, &unit, 1) != 1) {
            unit = kReplacement;
        }
        ShowText(m_out, m_conversion, {&unit, 1});
    } else {
        const auto unit = static_cast<WCHAR>(m_arguments.Next<int>());
        ShowText(m_out, m_conversion, {&unit, 1});
    }
}

} // namespace

int _vsnwprintf(WCHAR* buffer, std::size_t size, const WCHAR* format, va_list arguments)
{
    if (size == 0) {
        return -1;
    }
    WideWriter out(buffer, size);
    if (format != nullptr) {
        Formatter(out, arguments).Run(format);
    } else {
        out.Write(kNullText);
    }
    return out.Finish();
}

int _snwprintf(WCHAR* buffer, std::size_t size, const WCHAR* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int units = _vsnwprintf(buffer, size, format, arguments);
    va_end(arguments);
    return units;
}

} // namespace qv::platform
