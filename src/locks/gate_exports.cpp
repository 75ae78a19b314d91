#include <qvcore6/gate.h>

#include "frame/boundary.h"
#include "locks/gate.h"

using qv::core::Gate;

QVRESULT QVGateCreate(const char* name, uint32_t flags, QVGate* handleOut)
{
    *handleOut = QV_GATE_NONE;
    return qv::core::Boundary([&] { *handleOut = (new Gate(name, flags))->ToHandle(); });
}

QVRESULT QVGateDestroy(QVGate gate)
{
    delete Gate::FromHandle(gate);
    return S_OK;
}

QVRESULT QVGateOpen(QVGate gate)
{
    return Gate::FromHandle(gate)->Open();
}

QVRESULT QVGateClose(QVGate gate)
{
    return Gate::FromHandle(gate)->Close();
}

QVRESULT QVGateWait(QVGate gate)
{
    return Gate::FromHandle(gate)->Wait();
}

QVRESULT QVGateTimedWait(QVGate gate, uint32_t timeoutMs)
{
    return Gate::FromHandle(gate)->TimedWait(timeoutMs);
}

QVRESULT QVGateTryWait(QVGate gate)
{
    return Gate::FromHandle(gate)->TryWait();
}
