// The text of a GUID.
#pragma once

#include <qvcore6/component.h>

#include <array>

namespace qv::core
{

// Room for the text and its terminator, in whole blocks of 16 bytes.
struct alignas(16) GuidText : std::array<char, 48>
{};

// The text with braces, in upper case, and its terminator.
void FormatGuid(const GUID& guid, GuidText& text);

// False, with *guidOut as it was, for what is no GUID. Reads nothing behind the terminator.
bool ParseGuid(const QVWChar* text, GUID* guidOut);

} // namespace qv::core
