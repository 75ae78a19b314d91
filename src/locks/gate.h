// A gate's parts, for use inside the library: no exported call, and no exception once it is made.
#pragma once

#include <qvcore6/gate.h>

#include "locks/wait_record.h"

namespace qv::core
{

// Open or closed, closed at first. A failing call changes nothing.
class Gate
{
public:
    // Throws what the create function answers.
    Gate(const char* name, std::uint32_t flags) : m_record(name, flags)
    {
        m_record.Own(platform::CreateEventA(nullptr, platform::kTrue, platform::kFalse, nullptr));
    }

    QVRESULT Open() { return SetEventOf(m_record); }
    QVRESULT Close() { return ResetEventOf(m_record); }
    QVRESULT Wait() { return WaitForEventOf(m_record, true, platform::INFINITE, E_FAIL); }
    QVRESULT TimedWait(std::uint32_t timeoutMs)
    {
        return WaitForEventOf(m_record, true, timeoutMs, QV_E_TIMEOUT);
    }
    QVRESULT TryWait() { return WaitForEventOf(m_record, true, 0, E_FAIL); }

    static Gate* FromHandle(QVGate gate) { return reinterpret_cast<Gate*>(gate); }
    QVGate ToHandle() { return reinterpret_cast<QVGate>(this); }

private:
    WaitRecord m_record;
};

} // namespace qv::core
