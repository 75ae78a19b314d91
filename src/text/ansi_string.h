// Text in the ANSI code page as the library's own strings, for names that cross inside the library.
#pragma once

#include <qvcore6/base.h>

#include <string>

// What cannot be converted becomes U+FFFD or '?'. A conversion that fails as a whole (a text of
// more than 2 GiB, memory) gives an empty or zero-filled string. Both throw std::bad_alloc.
std::u16string QVAnsiToWString(const char* text);
std::string QVWStringToAnsi(const QVWChar* text);
