#include "host/lazy_mutex.h"

#include "frame/child_mutex.h"
#include "platform/thread.h"

namespace qv::core
{

namespace
{

QVMutex ToMutex(std::uintptr_t handle)
{
    return reinterpret_cast<QVMutex>(handle);
}

} // namespace

QVMutex LazyMutex::Get()
{
    QVMutex mutex = ToMutex(m_handle.load(std::memory_order_acquire));
    if (mutex != QV_MUTEX_NONE) {
        return mutex;
    }
    HoldSpin();
    mutex = ToMutex(m_handle.load(std::memory_order_relaxed));
    if (mutex == QV_MUTEX_NONE) {
        QVMutexCreate(m_name, 0, &mutex);
        m_handle.store(reinterpret_cast<std::uintptr_t>(mutex), std::memory_order_release);
    }
    DropSpin();
    return mutex;
}

void LazyMutex::HoldSpin()
{
    while (m_spin.exchange(1, std::memory_order_acquire) == 1) {
        platform::Sleep(1);
    }
}

void LazyMutex::DropSpin()
{
    m_spin.store(0, std::memory_order_release);
}

void LazyMutex::PrepareFork()
{
    HoldSpin();
}

void LazyMutex::ParentAfterFork()
{
    DropSpin();
}

void LazyMutex::ChildAfterFork()
{
    const QVMutex mutex = ToMutex(m_handle.load(std::memory_order_relaxed));
    if (mutex != QV_MUTEX_NONE) {
        FreeMutexInChild(mutex);
    }
    DropSpin();
}

void LazyMutex::Destroy()
{
    const QVMutex mutex = ToMutex(m_handle.exchange(UINTPTR_MAX));
    if (mutex != QV_MUTEX_NONE) {
        QVMutexDestroy(mutex);
    }
}

} // namespace qv::core
