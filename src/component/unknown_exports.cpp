#include <qvcore6/component.h>

QVRESULT IQVUnknown_QueryInterface(IQVUnknown* object, const GUID* iid, void** objectOut)
{
    return object->QueryInterface(iid, objectOut);
}

uint32_t IQVUnknown_AddRef(IQVUnknown* object)
{
    return object->AddRef();
}

uint32_t IQVUnknown_Release(IQVUnknown* object)
{
    return object->Release();
}
