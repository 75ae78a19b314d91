// The runtime library's formatted text in 16-bit units.
//
// A conversion is %[flags][width][.precision][size]letter.
//
//   flags      - + space # 0
//   width      a number, or * for an int argument; a negative one means the flag -
//   precision  the same; a negative one means none
//   size       hh h l ll L w I I32 I64 z j t
//
//   d i u o x X   integers. No size: int. l is the compiler's long, I and z are as wide as a
//   pointer e f g a       double, also in upper case. L: a long double, shown as the double next to
//   it s S           text: 16-bit, and CP_ACP for S. h makes either narrow, l and w wide. The
//   precision
//                 counts units of 16-bit text and bytes of narrow text; nothing behind it is read
//   c C           one unit, or one byte, by the same rules
//   p             a pointer in all its digits, in upper case
//   n             refused: its pointer is taken and nothing stored
//   %             itself
//
// Numbers come out as C's printf has them, the decimal point after the process's locale. The flag 0
// fills text up as well. Null text shows as "(null)", and so does a null format. From a conversion
// that is none of these on, or that the format's end cuts, the rest of the format is shown as it
// stands: where its arguments lie is not known any more.
#pragma once

#include <cstdarg>
#include <cstddef>

#include "platform/types.h"

namespace qv::platform
{

extern "C"
{
    // Writes at most size units, terminator included, and always the terminator unless size is 0.
    // Result: the units before the terminator, or -1 if the text was cut. What is cut ends in a
    // whole character. Nothing is allocated but by the C library and ICU: the one for floating
    // point, the other for narrow text beyond ASCII in a charset that is not UTF-8.
    int _vsnwprintf(WCHAR* buffer, std::size_t size, const WCHAR* format, va_list arguments);
    int _snwprintf(WCHAR* buffer, std::size_t size, const WCHAR* format, ...);
}

} // namespace qv::platform
