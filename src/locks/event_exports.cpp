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

bool IsManual(std::uint32_t flags)
{
    return (flags & QV_EVENT_MANUAL_RESET) != 0;
}

QVRESULT Wait(QVEvent event, DWORD milliseconds, QVRESULT outOfTime)
{
    const WaitRecord& record = *FromHandle(event);
    return WaitForEventOf(record, IsManual(record.m_flags), milliseconds, outOfTime);
}

} // namespace

QVRESULT QVEventCreate(const char* name, uint32_t flags, QVEvent* handleOut)
{
    *handleOut = QV_EVENT_NONE;
    return Boundary([&] {
        auto record = std::make_unique<WaitRecord>(name, flags);
        record->Own(CreateEventA(nullptr, IsManual(flags) ? kTrue : kFalse, kFalse, nullptr));
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
    return SetEventOf(*FromHandle(event));
}

QVRESULT QVEventReset(QVEvent event)
{
    return ResetEventOf(*FromHandle(event));
}

QVRESULT QVEventWait(QVEvent event)
{
    return Wait(event, INFINITE, E_FAIL);
}

QVRESULT QVEventTimedWait(QVEvent event, uint32_t timeoutMs)
{
    return Wait(event, timeoutMs, QV_E_TIMEOUT);
}
