// Calls of foreign objects. They go through the object's table, as C does it: an object that was
// written in C has no C++ type, and checkers of virtual calls would stumble over it.
#pragma once

#include <qvcore6/component.h>

namespace qv::core
{

struct ForeignTable
{
    QVRESULT (*QueryInterface)(void* object, const GUID* iid, void** objectOut);
    uint32_t (*AddRef)(void* object);
    uint32_t (*Release)(void* object);
    // Only class objects have it.
    QVRESULT (*CreateInstance)(void* object, IQVUnknown* outer, const GUID* iid, void** objectOut);
};

inline const ForeignTable& TableOf(const void* object)
{
    return **static_cast<const ForeignTable* const*>(object);
}

} // namespace qv::core
