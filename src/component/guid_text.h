// The text of a GUID.
#pragma once

#include <qvcore6/component.h>

namespace qv::core
{

// The text with braces, in upper case, and its terminator.
void FormatGuid(const GUID& guid, char (&text)[QV_GUID_TEXT_UNITS]);

// False, with *guidOut as it was, for what is no GUID. Reads nothing behind the terminator.
bool ParseGuid(const QVWChar* text, GUID* guidOut);

} // namespace qv::core
