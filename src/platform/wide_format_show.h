// One conversion's text or number with its padding, as wide formats show it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/types.h"
#include "platform/wide_format_parse.h"
#include "platform/wide_writer.h"

namespace qv::platform
{

// What is missing to the conversion's width.
inline std::size_t PaddingFor(const Conversion& conversion, std::size_t units)
{
    const auto width = static_cast<std::size_t>(conversion.width);
    return width > units ? width - units : 0;
}

void ShowText(WideWriter& out, const Conversion& conversion, std::u16string_view text);
// The sign stands for itself; value is without one. By the letter: o, x, X, p (as X), else decimal.
void ShowInteger(WideWriter& out, const Conversion& conversion, std::u16string_view sign,
                 std::uint64_t value);
void ShowFloating(WideWriter& out, const Conversion& conversion, double value);

} // namespace qv::platform
