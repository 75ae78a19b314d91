// Names of sub-keys that an enumeration has read ahead of its caller.
#pragma once

#include "platform/types.h"

namespace qv::platform
{

struct NamesAhead;

void FreeNamesAhead(NamesAhead* names);

} // namespace qv::platform
