#include <qvcore6/module.h>

#include "component/managers.h"
#include "component/module_manager.h"
#include "frame/boundary.h"

using namespace qv::core;

namespace
{

// The gate comes before the first write of the function behind it.
template <class Call> QVRESULT Gated(uint32_t module, Call&& call)
{
    return Boundary(
        [&] { return ModuleManager().IsInitialized(module) ? call() : QV_E_NOT_INITIALIZED; });
}

} // namespace

QVRESULT QVModuleSetInitialized(uint32_t module, int16_t initialized)
{
    return Boundary([&] { ModuleManager().SetInitialized(module, initialized != 0); });
}

QVRESULT QVModuleLibOpen(uint32_t module, const QVWChar* path, QVLibrary* libraryOut)
{
    return Gated(module, [&] { return QVLibOpen(path, libraryOut); });
}

QVRESULT QVModuleLibClose(uint32_t module, QVLibrary library)
{
    return Gated(module, [&] { return QVLibClose(library); });
}

QVRESULT QVModuleComGetClassObject(uint32_t module, const GUID* clsid, const GUID* iid,
                                   void** objectOut)
{
    return Gated(module, [&] { return QVComGetClassObject(clsid, iid, objectOut); });
}

QVRESULT QVModuleComCreateObject(uint32_t module, const GUID* clsid, IQVUnknown* outer,
                                 const GUID* iid, void** objectOut)
{
    return Gated(module, [&] { return QVComCreateObject(clsid, outer, iid, objectOut); });
}
