// What ASCII is, for one unit of any text kind. The locale has no say in it.
#pragma once

#include <cstdint>

namespace qv::core
{

enum class Case
{
    Lower,
    Upper
};

// Narrow text is compared and classified by the byte's unsigned value.
constexpr std::uint32_t Value(char unit)
{
    return static_cast<unsigned char>(unit);
}
constexpr std::uint32_t Value(char16_t unit)
{
    return unit;
}

template <class Unit> constexpr bool IsAscii(Unit unit)
{
    return Value(unit) <= 0x7F;
}

// A run of ASCII text ends in front of a terminator and of anything above 0x7F.
template <class Unit> constexpr bool EndsAsciiRun(Unit unit)
{
    return Value(unit) - 1 > 0x7E;
}

// Folds an ASCII letter; every other unit stays.
template <Case to, class Unit> constexpr Unit FoldAscii(Unit unit)
{
    constexpr std::uint32_t first = to == Case::Lower ? 'A' : 'a';
    return Value(unit) - first < 26 ? static_cast<Unit>(unit ^ 0x20) : unit;
}

} // namespace qv::core
