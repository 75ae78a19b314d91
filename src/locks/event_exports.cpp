#include <qvcore6/event.h>

#include <memory>

#include "frame/boundary.h"
#include "locks/wait_record.h"

using namespace qv::core;
using namespace qv::platform;

namespace
{

WaitRecord* FromHandle(QVEvent event)
{
    return reinterpret_cast<WaitRecord*>(event);
}

} // namespace

QVRESULT QVEventCreate(const char* name, uint32_t flags, QVEvent* handleOut)
{
    *handleOut = QV_EVENT_NONE;
    return Boundary([&] {
        auto record = std::make_unique<WaitRecord>(name, flags);
        const BOOL manualReset = (flags & QV_EVENT_MANUAL_RESET) != 0 ? kTrue : kFalse;
        record->Own(CreateEventA(nullptr, manualReset, kFalse, nullptr));
        *handleOut = reinterpret_cast<QVEvent>(record.release());
    });
}

QVRESULT QVEventDestroy(QVEvent event)
{
    delete FromHandle(event);
    return S_OK;
}

QVRESULT QVEventSignal(QVEvent event)
{
    return ResultOfCall(SetEvent(FromHandle(event)->m_handle));
}

QVRESULT QVEventReset(QVEvent event)
{
    return ResultOfCall(ResetEvent(FromHandle(event)->m_handle));
}

QVRESULT QVEventWait(QVEvent event)
{
    return WaitForRecord(*FromHandle(event), INFINITE, E_FAIL);
}

QVRESULT QVEventTimedWait(QVEvent event, uint32_t timeoutMs)
{
    return WaitForRecord(*FromHandle(event), timeoutMs, QV_E_TIMEOUT);
}
