// Wide formats of any shape, with arguments that fit whatever they ask for: the result is
// terminated and within the buffer, and a smaller buffer shows the start of what a larger one does.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "platform/wide_format.h"

namespace
{

using qv::platform::WCHAR;

void Require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

// A text in either width, and a number. Ends in a zero unit wherever it is read from.
alignas(8) constexpr char kText[] =
    "h\xC3\xA9llo w\xF0\x9F\x98\x80rld \xFF\xC3 = \xD8\xD8\xDE\xDE\0\0\0";

// A long double takes the places of two and may leave one out.
constexpr int kMostArguments = 12;

struct Made
{
    std::vector<WCHAR> buffer;
    int result;
};

// Of just that size, so that a write behind it is seen.
Made Format(std::size_t size, const WCHAR* format)
{
    Made made{std::vector<WCHAR>(size, 0xA5A5), 0};
    // The numbers fill the registers for them, so that all else is pointers.
    made.result = [&]<std::size_t... I, std::size_t... J>(std::index_sequence<I...>,
                                                          std::index_sequence<J...>)
    {
        return qv::platform::_snwprintf(made.buffer.data(), size, format,
                                        (static_cast<void>(I), -1234.5678)...,
                                        (static_cast<void>(J), kText)...);
    }
    (std::make_index_sequence<8>(), std::make_index_sequence<4 * kMostArguments>());
    return made;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < sizeof(std::uint16_t)) {
        return 0;
    }
    std::uint16_t small = 0;
    std::memcpy(&small, data, sizeof small);
    small = static_cast<std::uint16_t>(1 + small % 600);
    std::vector<WCHAR> format((size - sizeof small) / sizeof(WCHAR) + 1);
    std::memcpy(format.data(), data + sizeof small, (format.size() - 1) * sizeof(WCHAR));
    format.back() = 0;
    int arguments = 0;
    for (const WCHAR unit : format) {
        arguments += unit == u'%' || unit == u'*' ? 1 : 0;
    }
    if (arguments > kMostArguments) {
        return 0;
    }

    constexpr std::size_t kLarge = 2048;
    const Made whole = Format(kLarge, format.data());
    const Made cut = Format(small, format.data());
    // Without an end of its own the text fills the buffer, but for a pair that did not fit.
    const auto lengthOf = [](const Made& made) {
        std::size_t length = made.buffer.size() - 1;
        if (made.result >= 0) {
            length = static_cast<std::size_t>(made.result);
        } else if (made.buffer[length] != 0 || (length > 0 && made.buffer[length - 1] == 0)) {
            --length;
        }
        Require(length < made.buffer.size() && made.buffer[length] == 0);
        return length;
    };
    const std::size_t length = lengthOf(cut);
    Require(length <= lengthOf(whole));
    Require(std::memcmp(cut.buffer.data(), whole.buffer.data(), length * sizeof(WCHAR)) == 0);
    Require((cut.result >= 0) == (whole.result >= 0 && whole.result < small));
    Require(cut.result < 0 || cut.result == whole.result);
    return 0;
}
