// What the reader-writer lock is built on: plain mutexes, gates over the model event, thread ids.
#include <qvcore6/mutex.h>

#include "locks/gate.h"
#include "platform/critical_section.h"
#include "platform/error.h"
#include "platform/thread.h"

using namespace qv::platform;

namespace qv::platform
{
extern "C"
{
    HANDLE CreateEventA(const SECURITY_ATTRIBUTES* /*attributes*/, BOOL /*manualReset*/,
                        BOOL /*initialState*/, const char* /*name*/)
    {
        return new EventObject();
    }
    BOOL SetEvent(HANDLE event)
    {
        return static_cast<EventObject*>(event)->TrySet();
    }
    BOOL ResetEvent(HANDLE event)
    {
        static_cast<EventObject*>(event)->Reset();
        return kTrue;
    }
    DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds)
    {
        return object->Wait(Deadline::After(milliseconds));
    }
    BOOL CloseHandle(HANDLE object)
    {
        object->Close();
        return kTrue;
    }
    DWORD GetLastError()
    {
        return 0;
    }
    DWORD GetCurrentThreadId()
    {
        return static_cast<DWORD>(qv::explore::CurrentThread() + 1);
    }
}
} // namespace qv::platform

void qv::core::ThrowLastError()
{
    throw EQVCoreException(E_FAIL);
}

extern "C"
{
    QVRESULT QVResultFromNative(uint32_t /*error*/)
    {
        return E_FAIL;
    }

    QVRESULT QVMutexCreate(const char* /*name*/, uint32_t /*flags*/, QVMutex* handleOut)
    {
        *handleOut = reinterpret_cast<QVMutex>(new CRITICAL_SECTION());
        return S_OK;
    }
    QVRESULT QVMutexDestroy(QVMutex mutex)
    {
        delete reinterpret_cast<CRITICAL_SECTION*>(mutex);
        return S_OK;
    }
    void* QVMutexGetOSMutex(QVMutex mutex)
    {
        return reinterpret_cast<CRITICAL_SECTION*>(mutex);
    }

    QVRESULT QVGateDestroy(QVGate gate)
    {
        delete qv::core::Gate::FromHandle(gate);
        return S_OK;
    }
}
