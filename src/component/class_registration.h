// What the registry says about classes. Readers of foreign data: any bytes may stand there.
#pragma once

#include <qvcore6/component.h>
#include <qvcore6/result.h>

#include <array>

namespace qv::core
{

// Enough for every path that QVLibOpen is given, with a terminator behind it in any case.
using LibraryPath = std::array<QVWChar, 261>;

// The library of a class, or a failure code of the read.
QVRESULT ReadLibraryPath(const GUID& clsid, LibraryPath& path);

// The class of a readable name.
QVRESULT ReadClassOfProgID(const QVWChar* progId, GUID* clsidOut);

} // namespace qv::core
