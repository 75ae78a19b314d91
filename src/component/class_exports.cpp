#include <qvcore6/component.h>

#include "component/class_registration.h"
#include "component/factory_manager.h"
#include "component/foreign.h"
#include "component/holders.h"
#include "component/managers.h"
#include "frame/boundary.h"

using namespace qv::core;

QVRESULT QVComClassIDFromProgID(const QVWChar* progId, GUID* clsidOut)
{
    return Boundary([&] { return ReadClassOfProgID(progId, clsidOut); });
}

QVRESULT QVComGetClassObject(const GUID* clsid, const GUID* iid, void** objectOut)
{
    *objectOut = nullptr;
    return Boundary([&] { *objectOut = FactoryManager().GetClassObject(*clsid, *iid); });
}

QVRESULT QVComCreateObject(const GUID* clsid, IQVUnknown* outer, const GUID* iid, void** objectOut)
{
    void* object = nullptr;
    const QVRESULT found = QVComGetClassObject(clsid, &QV_IID_CLASS_FACTORY, &object);
    if (found < 0) {
        return found;
    }
    HeldInterface factory;
    factory.Take(object);
    return Boundary([&] { return TableOf(object).CreateInstance(object, outer, iid, objectOut); });
}

QVRESULT QVComCreateObjectByProgID(const QVWChar* progId, IQVUnknown* outer, const GUID* iid,
                                   void** objectOut)
{
    GUID clsid;
    const QVRESULT result = QVComClassIDFromProgID(progId, &clsid);
    return result < 0 ? result : QVComCreateObject(&clsid, outer, iid, objectOut);
}

QVRESULT QVComFlushFactoryCache()
{
    return Boundary([&] { FactoryManager().Flush(); });
}
