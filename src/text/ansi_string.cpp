#include "text/ansi_string.h"

#include <climits>

#include "platform/locale.h"

using namespace qv;

namespace
{

// convert(src, length, dest, size) is one of the platform's two conversions.
template <class To, class From, class Convert>
std::basic_string<To> ConvertString(const From* text, Convert convert)
{
    std::basic_string<To> result;
    const std::size_t length = std::char_traits<From>::length(text);
    if (length == 0 || length > INT_MAX) {
        return result;
    }
    const int count = static_cast<int>(length);
    const int size = convert(text, count, nullptr, 0);
    result.resize(static_cast<std::size_t>(size));
    if (size != 0) {
        convert(text, count, result.data(), size);
    }
    return result;
}

} // namespace

std::u16string QVAnsiToWString(const char* text)
{
    return ConvertString<char16_t>(text, [](const char* src, int count, char16_t* dest, int size) {
        return platform::MultiByteToWideChar(platform::CP_ACP, 0, src, count, dest, size);
    });
}

std::string QVWStringToAnsi(const QVWChar* text)
{
    return ConvertString<char>(text, [](const QVWChar* src, int count, char* dest, int size) {
        return platform::WideCharToMultiByte(platform::CP_ACP, 0, src, count, dest, size, nullptr,
                                             nullptr);
    });
}
