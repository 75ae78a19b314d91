#include "platform/named_object_name.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "platform/error.h"
#include "platform/locale.h"

namespace qv::platform
{

namespace
{

constexpr WCHAR kReplacement = 0xFFFD;
constexpr std::size_t kMaxBytesOfUnit = 8; // of any charset, with its shifts
constexpr std::size_t kMaxEscaped = 200;   // with the rest of the file's name below 255
constexpr std::size_t kKeptOfLong = 160;
constexpr std::string_view kPrefix = "qvc."; // of the files
constexpr char kHexDigits[] = "0123456789ABCDEF";

bool IsHigh(WCHAR unit)
{
    return (unit & 0xFC00) == 0xD800;
}

bool IsLow(WCHAR unit)
{
    return (unit & 0xFC00) == 0xDC00;
}

// Whether the text is what these units stand for. Asked of texts with the replacement character.
bool IsTextOf(const WCHAR* units, std::size_t count, std::string_view text)
{
    char bytes[kMaxObjectName * kMaxBytesOfUnit];
    const int length = WideCharToMultiByte(CP_ACP, 0, units, static_cast<int>(count), bytes,
                                           static_cast<int>(sizeof bytes), nullptr, nullptr);
    return length > 0 && text == std::string_view(bytes, static_cast<std::size_t>(length));
}

bool IsPlain(unsigned char byte)
{
    return (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') ||
           (byte >= '0' && byte <= '9') || byte == '_' || byte == '.' || byte == ':' || byte == '-';
}

// Two hashes of 64 bits. They only keep names apart that begin alike, and need resist nobody.
struct NameHash
{
    std::uint64_t first = 0xCBF29CE484222325;
    std::uint64_t second = 0x9E3779B97F4A7C15;

    explicit NameHash(std::u16string_view name)
    {
        constexpr std::uint64_t kPrime = 0x100000001B3;
        for (const WCHAR unit : name) {
            first = (first ^ unit) * kPrime;
            second = ((second << 23 | second >> 41) ^ unit) * kPrime;
        }
    }
};

} // namespace

DWORD ObjectName::Widen(const char* text)
{
    m_count = 0;
    const std::size_t length = strnlen(text, kMaxObjectName * kMaxBytesOfUnit + 1);
    if (length == 0) {
        return ERROR_SUCCESS;
    }
    if (length > kMaxObjectName * kMaxBytesOfUnit) {
        return ERROR_FILENAME_EXCED_RANGE;
    }
    const int made = MultiByteToWideChar(CP_ACP, 0, text, static_cast<int>(length), m_units,
                                         static_cast<int>(kMaxObjectName));
    if (made == 0) {
        const DWORD error = GetLastError();
        return error == ERROR_INSUFFICIENT_BUFFER ? ERROR_FILENAME_EXCED_RANGE : error;
    }
    m_count = static_cast<std::size_t>(made);
    const std::string_view bytes(text, length);
    if (Units().find(kReplacement) == std::u16string_view::npos ||
        IsTextOf(m_units, m_count, bytes)) {
        return ERROR_SUCCESS;
    }
    if (length > kMaxObjectName) {
        return ERROR_FILENAME_EXCED_RANGE;
    }
    std::transform(bytes.begin(), bytes.end(), m_units, [](char byte) {
        const auto value = static_cast<unsigned char>(byte);
        return static_cast<WCHAR>(value < 0x80 ? value : 0xDC00u + value);
    });
    m_count = length;
    return ERROR_SUCCESS;
}

DWORD ObjectPath::Make(std::u16string_view name)
{
    if (name.size() > kMaxObjectName) {
        return ERROR_FILENAME_EXCED_RANGE;
    }
    if (name.find(u'\\') != std::u16string_view::npos) {
        return ERROR_PATH_NOT_FOUND;
    }
    m_length = 0;
    AppendText(kObjectFolder);
    Append('/');
    AppendText(kPrefix);
    const std::size_t start = m_length;
    for (std::size_t i = 0; i < name.size(); ++i) {
        std::uint32_t point = name[i];
        if (IsHigh(name[i]) && i + 1 < name.size() && IsLow(name[i + 1])) {
            ++i;
            point = 0x10000u + ((point & 0x3FFu) << 10) + (name[i] & 0x3FFu);
        }
        AppendUtf8(point);
    }
    if (m_length - start > kMaxEscaped) {
        ShortenFrom(start, name);
    }
    m_text[m_length] = 0;
    return ERROR_SUCCESS;
}

bool ObjectPath::MakeOfFile(std::string_view file)
{
    m_length = 0;
    AppendText(kObjectFolder);
    Append('/');
    AppendText(file);
    if (!file.starts_with(kPrefix) || m_length >= sizeof m_text) {
        return false;
    }
    m_text[m_length] = 0;
    return true;
}

void ObjectPath::AppendText(std::string_view text)
{
    for (const char byte : text) {
        Append(byte);
    }
}

void ObjectPath::AppendEscaped(unsigned char byte)
{
    if (IsPlain(byte)) {
        Append(static_cast<char>(byte));
        return;
    }
    Append('%');
    Append(kHexDigits[byte >> 4]);
    Append(kHexDigits[byte & 0xF]);
}

// Unpaired surrogates keep three bytes of their own: unlike file names, none may become a byte that
// makes one name into another.
void ObjectPath::AppendUtf8(std::uint32_t point)
{
    const auto append = [&](std::uint32_t byte) {
        AppendEscaped(static_cast<unsigned char>(byte));
    };
    if (point < 0x80) {
        append(point);
        return;
    }
    if (point < 0x800) {
        append(0xC0 | point >> 6);
    } else {
        if (point < 0x10000) {
            append(0xE0 | point >> 12);
        } else {
            append(0xF0 | point >> 18);
            append(0x80 | (point >> 12 & 0x3F));
        }
        append(0x80 | (point >> 6 & 0x3F));
    }
    append(0x80 | (point & 0x3F));
}

// The tilde stands in no escaped name, so no short one is like it.
void ObjectPath::ShortenFrom(std::size_t start, std::u16string_view name)
{
    m_length = start + kKeptOfLong;
    Append('~');
    const NameHash hash(name);
    for (const std::uint64_t half : {hash.first, hash.second}) {
        for (int shift = 60; shift >= 0; shift -= 4) {
            Append(kHexDigits[half >> shift & 0xF]);
        }
    }
}

} // namespace qv::platform
