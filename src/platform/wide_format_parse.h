// Reading one conversion of a wide format.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/types.h"

namespace qv::platform
{

// What a size means stands in the formatter, in this order.
enum class ArgumentSize : std::uint8_t
{
    kNone,
    kChar,     // hh
    kShort,    // h
    kLong,     // l
    k64,       // ll, I64
    k32,       // I32
    kPointer,  // I
    kSize,     // z
    kMost,     // j
    kDistance, // t
    kExtended, // L
    kWide,     // w
};

struct Conversion
{
    bool left = false;
    bool plus = false;
    bool space = false;
    bool alternate = false;
    bool zero = false;
    bool widthIsArgument = false;
    bool precisionIsArgument = false;
    int width = 0;
    int precision = -1; // none
    ArgumentSize size = ArgumentSize::kNone;
    WCHAR letter = 0; // 0: there is none of the known ones
};

// Reads what stands behind a '%' and gives what stands behind that. Reads no argument. Numbers
// above INT_MAX are as that.
const WCHAR* ParseConversion(const WCHAR* at, Conversion* conversion);

} // namespace qv::platform
