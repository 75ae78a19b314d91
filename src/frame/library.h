// The library's start and stop. The one place that knows every manager.
#pragma once

#include <qvcore6/base.h>

namespace qv::core
{

// Called by the load notification alone, which drops what they return.
QVRESULT QVLibraryStart();
QVRESULT QVLibraryStop();

} // namespace qv::core
