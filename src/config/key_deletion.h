// Deletes a key with everything under it.
#pragma once

#include <qvcore6/result.h>

#include "config/native_key.h"

namespace qv::core
{

// 0, E_FAIL if the key cannot be opened, or native error numbers or-ed together.
// Throws std::bad_alloc.
QVRESULT DeleteTree(const NativeRoot& root, const char16_t* path);

} // namespace qv::core
