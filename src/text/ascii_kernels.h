// The kernels for runs of ASCII text: the machine's own form, or the portable one.
//
// All stop in front of the first unit that ends the run (a terminator, or a unit above 0x7F) and
// leave it to the caller. They write no unit behind that, and none above a given maximum.
#pragma once

#include "text/ascii_kernels_portable.h"
#include "text/ascii_kernels_sse2.h"

namespace qv::core
{

#if defined(__SSE2__)
using AsciiKernels = Sse2Kernels;
#else
using AsciiKernels = PortableKernels;
#endif

} // namespace qv::core
