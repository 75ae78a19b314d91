// The model of a manual-reset event, found instead of the real one by what is built on it.
#pragma once

#include <vector>

#include "interleavings/explored_atomic.h"
#include "platform/wait.h"

namespace qv::platform
{

class EventObject final : public KernelObject
{
public:
    EventObject() : KernelObject(ObjectKind::ManualEvent) {}

    bool TrySet(explore::Where where = explore::Here())
    {
        explore::Step("open", this, where);
        m_isSignalled = true;
        for (bool* const isFreed : m_waiters) {
            *isFreed = true;
        }
        m_waiters.clear();
        return true;
    }
    void Reset(explore::Where where = explore::Here())
    {
        explore::Step("close", this, where);
        m_isSignalled = false;
    }
    bool IsSignalled(explore::Where where = explore::Here()) const
    {
        explore::Step("look at", this, where);
        return m_isSignalled;
    }
    bool TryTake() { return IsSignalled(); }
    DWORD Wait(const Deadline& deadline) override
    {
        const auto where = explore::Here();
        explore::Step("wait at", this, where);
        if (explore::CurrentThread() == failing) {
            return WAIT_FAILED;
        }
        if (m_isSignalled) {
            return WAIT_OBJECT_0;
        }
        if (deadline.IsNow()) {
            return WAIT_TIMEOUT;
        }
        bool isFreed = false;
        m_waiters.push_back(&isFreed);
        explore::Await("is let through the gate", this, where, [&] { return isFreed; });
        return WAIT_OBJECT_0;
    }
    void Close() override { delete this; }

    int failing = -2; // the thread whose waits fail

    // No steps.
    bool SeenOpen() const { return m_isSignalled; }
    bool SeenAwaited() const { return !m_waiters.empty(); }

private:
    bool m_isSignalled = false;
    std::vector<bool*> m_waiters;
};

} // namespace qv::platform
