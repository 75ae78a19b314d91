#include <qvcore6/component.h>

#include "component/foreign.h"

using qv::core::TableOf;

QVRESULT IQVUnknown_QueryInterface(IQVUnknown* object, const GUID* iid, void** objectOut)
{
    return TableOf(object).QueryInterface(object, iid, objectOut);
}

uint32_t IQVUnknown_AddRef(IQVUnknown* object)
{
    return TableOf(object).AddRef(object);
}

uint32_t IQVUnknown_Release(IQVUnknown* object)
{
    return TableOf(object).Release(object);
}
