// Files as streams of the C library.
#pragma once

#include <cstdio>

namespace qv::platform
{

// As the C library's, over signals, close-on-exec, and above the standard numbers. Null with errno.
std::FILE* fopen(const char* path, const char* mode);

} // namespace qv::platform
