// Semaphores that processes share by name.
#pragma once

#include "platform/wait.h"

namespace qv::platform
{

// The named form of CreateSemaphoreA, counts already tested. The last error is 183 if the object
// existed, 0 if it was made here. Null on failure, with the last error set.
HANDLE OpenNamedSemaphore(const SECURITY_ATTRIBUTES* attributes, LONG initialCount,
                          LONG maximumCount, const char* name);

} // namespace qv::platform
