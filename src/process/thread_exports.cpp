#include <qvcore6/thread.h>

#include <utility>

#include "frame/boundary.h"
#include "platform/error.h"
#include "platform/thread.h"
#include "process/managers.h"
#include "process/thread_manager.h"
#include "process/thread_start.h"

using namespace qv::core;
using namespace qv::platform;

namespace
{

// A join's or a detach's hold on the thread's handle. It ends also when the joining thread is
// cancelled, and the thread can then be joined again.
class ThreadUse
{
public:
    ThreadUse(CQVThreadManager& manager, QVThread thread)
        : m_manager(manager), m_id(thread), m_record(manager.BeginUse(thread))
    {}
    ~ThreadUse()
    {
        if (m_record) {
            m_manager.EndUse(*m_record.Get(), false);
        }
    }
    ThreadUse(const ThreadUse&) = delete;
    ThreadUse& operator=(const ThreadUse&) = delete;

    const CQVThreadData& Record() const { return *m_record.Get(); }

    QVRESULT GiveUp()
    {
        const CQVThreadManager::Record record = std::move(m_record);
        const QVRESULT result = m_manager.EndUse(*record.Get(), true);
        m_manager.MarkDetached(m_id, *record.Get());
        return result;
    }

private:
    CQVThreadManager& m_manager;
    QVThread m_id;
    CQVThreadManager::Record m_record;
};

QVRESULT SetAffinity(std::uint32_t mask, std::uint32_t& previous)
{
    previous = static_cast<std::uint32_t>(SetThreadAffinityMask(GetCurrentThread(), mask));
    return previous != 0 ? S_OK : QVResultFromNative(GetLastError());
}

} // namespace

QVRESULT QVThreadCreate(QVThreadEntry entry, void* argument, uint32_t /*reserved*/,
                        uint32_t stackSize, QVThread* threadOut, uint32_t* idOut)
{
    *threadOut = QV_THREAD_NONE;
    *idOut = 0;
    return Boundary(
        [&] { *threadOut = StartThread(ThreadManager(), entry, argument, stackSize, idOut); });
}

QVRESULT QVThreadJoin(QVThread thread, uint32_t* exitCodeOut)
{
    if (exitCodeOut != nullptr) {
        *exitCodeOut = 0;
    }
    return Boundary([&]() -> QVRESULT {
        ThreadUse use(ThreadManager(), thread);
        // Its handle would make every caller wait for itself.
        if (use.Record().IsAdopted()) {
            return E_NOTIMPL;
        }
        if (WaitForSingleObject(use.Record().m_handle, INFINITE) == WAIT_FAILED) {
            ThrowLastError();
        }
        DWORD exitCode = 0;
        GetExitCodeThread(use.Record().m_handle, &exitCode);
        const QVRESULT result = use.GiveUp();
        if (exitCodeOut != nullptr && result != E_HANDLE) {
            *exitCodeOut = exitCode;
        }
        return result;
    });
}

QVRESULT QVThreadDetach(QVThread thread)
{
    return Boundary([&] { return ThreadUse(ThreadManager(), thread).GiveUp(); });
}

int16_t QVThreadIsFinished(QVThread thread)
{
    int16_t isFinished = 1; // also of a library that could not start, which has no threads
    Boundary([&] {
        if (const auto record = ThreadManager().Find(thread)) {
            isFinished = record->m_detached && record->m_finished ? 1 : 0;
        }
    });
    return isFinished;
}

QVThread QVThreadGetID()
{
    return GetCurrentThreadId();
}

intptr_t QVThreadGetHandle()
{
    return reinterpret_cast<intptr_t>(GetCurrentThread());
}

QVRESULT QVThreadYield()
{
    SwitchToThread();
    return S_OK;
}

void QVSleep(uint32_t milliseconds)
{
    Sleep(milliseconds);
}

QVRESULT QVSetCpuAffinity(const uint32_t* mask)
{
    uint32_t previous = 0;
    return SetAffinity(*mask, previous);
}

QVRESULT QVGetSetCpuAffinity(uint32_t* previousOut, const uint32_t* mask)
{
    return SetAffinity(*mask, *previousOut);
}
