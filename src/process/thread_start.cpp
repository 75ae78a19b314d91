#include "process/thread_start.h"

#include <qvcore6/semaphore.h>

#include <atomic>

#include "frame/exception.h"
#include "frame/ref_counted.h"
#include "locks/wait_record.h"
#include "platform/thread.h"
#include "process/managers.h"
#include "process/thread_manager.h"

using namespace qv::platform;

namespace qv::core
{

namespace
{

enum class Order
{
    Wait,
    Run,
    End,
};

// What the creator hands to the new thread. Both hold it until the handshake is over, so that
// neither has to know whether the other is through.
class ThreadStart : public CQVCoreRefCounted
{
public:
    ThreadStart(QVThreadEntry entry, void* argument) : m_entry(entry), m_argument(argument)
    {
        ThrowIfFailed(QVSemaphoreCreate(0, nullptr, 0, &m_handshake));
    }
    ~ThreadStart() override { QVSemaphoreDestroy(m_handshake); }

    // By the new thread. False if it is to end.
    bool AwaitOrder();

    // By the creator, the one or the other, or the second after the first has failed.
    void LetRun()
    {
        ThrowIfFailed(QVSemaphorePost(m_handshake));
        m_order = Order::Run;
    }
    void LetEnd()
    {
        m_order = Order::End;
        QVSemaphorePost(m_handshake);
    }

    QVThreadEntry Entry() const { return m_entry; }
    void* Argument() const { return m_argument; }

private:
    QVThreadEntry m_entry;
    void* m_argument;
    QVSemaphore m_handshake = QV_SEMAPHORE_NONE;
    std::atomic<Order> m_order{Order::Wait};
};

// The post lets the thread go. Should it have failed, or the wait for it, then the order tells, if
// a little later: a new thread never runs before the post, and does not stay for ever.
bool ThreadStart::AwaitOrder()
{
    constexpr DWORD kLookAnyway = 50;
    const HANDLE handshake = reinterpret_cast<const WaitRecord*>(m_handshake)->m_handle;
    for (;;) {
        const QVRESULT posted = ResultOfWait(handshake, kLookAnyway, QV_E_TIMEOUT);
        const Order order = m_order;
        if (posted >= 0 || order != Order::Wait) {
            return order != Order::End;
        }
        if (posted != QV_E_TIMEOUT) {
            Sleep(1);
        }
    }
}

// The first code of every thread. Nothing catches here: an exception that the entry function lets
// out ends the process, with its own message and the stack that threw it, where swallowing it would
// leave a service that goes on without one of its parts. A pthread_exit inside goes its way.
unsigned RunThread(void* handedOver)
{
    QVThreadEntry entry = nullptr;
    void* argument = nullptr;
    {
        const RefPtr<ThreadStart> start(static_cast<ThreadStart*>(handedOver));
        start->LowerCount(); // the one that the creator took for this thread
        if (!start->AwaitOrder()) {
            return 0;
        }
        entry = start->Entry();
        argument = start->Argument();
    }
    const std::uint32_t exitCode = entry(argument);
    ThreadManager().MarkFinished(GetCurrentThreadId());
    return exitCode;
}

} // namespace

std::uint32_t StartThread(CQVThreadManager& manager, QVThreadEntry entry, void* argument,
                          std::uint32_t stackSize, std::uint32_t* idOut)
{
    const RefPtr<ThreadStart> start(new ThreadStart(entry, argument));
    start->RaiseCount(); // for the new thread
    const std::uintptr_t begun =
        _beginthreadex(nullptr, stackSize, &RunThread, start.Get(), 0, idOut);
    if (begun == 0) {
        start->LowerCount();
        ThrowLastError();
    }
    const auto thread = reinterpret_cast<HANDLE>(begun);
    const std::uint32_t id = *idOut; // the caller's memory may change once the entry function runs
    bool isAdded = false;
    try {
        manager.Add(id, thread);
        isAdded = true;
        start->LetRun();
    } catch (...) {
        if (isAdded) {
            manager.Remove(id);
        }
        start->LetEnd();
        WaitForSingleObject(thread, INFINITE);
        CloseHandle(thread);
        *idOut = 0;
        throw;
    }
    return id;
}

} // namespace qv::core
