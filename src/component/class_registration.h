// What the registry says about classes. Readers of foreign data: any bytes may stand there.
#pragma once

#include <qvcore6/component.h>
#include <qvcore6/result.h>

#include <array>

namespace qv::core
{

// The 260 units that a registration may hold, and a terminator behind them in any case.
using LibraryPath = std::array<QVWChar, 261>;

// The library of a class, or a failure code of the read.
QVRESULT ReadLibraryPath(const GUID& clsid, LibraryPath& path);

// The class of a readable name.
QVRESULT ReadClassOfProgID(const QVWChar* progId, GUID* clsidOut);

} // namespace qv::core
