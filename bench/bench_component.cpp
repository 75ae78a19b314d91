// A component whose class objects cost nothing: any class, one object for all.
#include <qvcore6/component.h>
#include <qvcore6/result.h>

namespace
{

class ClassObject final : public IQVClassFactory
{
public:
    QVRESULT QueryInterface(const GUID*, void** objectOut) override
    {
        *objectOut = this;
        return S_OK;
    }
    uint32_t AddRef() override { return 2; }
    uint32_t Release() override { return 1; }
    QVRESULT CreateInstance(IQVUnknown*, const GUID*, void** objectOut) override
    {
        *objectOut = nullptr;
        return E_NOTIMPL;
    }
};

ClassObject g_classObject;

} // namespace

extern "C" QV_EXPORT QVRESULT DllGetClassObject(const GUID*, const GUID* iid, void** objectOut)
{
    return g_classObject.QueryInterface(iid, objectOut);
}
