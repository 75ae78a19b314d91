// A component whose load and unload routines look up a class of another component.
#include <qvcore6/result.h>

#include "component/test_classes.h"

namespace
{

void LookUpPlain(const char* event)
{
    const GUID clsid = qv::test::ClassOf(qv::test::Kind::Plain);
    void* object = nullptr;
    const QVRESULT result = QVComGetClassObject(&clsid, &QV_IID_UNKNOWN, &object);
    TestJournal(event, result >= 0 ? 1 : 0);
    if (result >= 0) {
        static_cast<IQVUnknown*>(object)->Release();
    }
}

[[gnu::constructor]] void OnLoad()
{
    LookUpPlain("asked on load");
}

[[gnu::destructor]] void OnUnload()
{
    LookUpPlain("asked on unload");
}

} // namespace

extern "C" QV_EXPORT QVRESULT DllGetClassObject(const GUID*, const GUID*, void** objectOut)
{
    *objectOut = nullptr;
    return qv::test::kForeignFailure;
}
