#include "locks/mutex.h"

#include "frame/boundary.h"
#include "locks/checked_mutex.h"

namespace
{

constexpr qv::platform::DWORD kSpinCount = 4000;

} // namespace

CQVCoreMutexImpl::CQVCoreMutexImpl(const char* name, std::uint32_t flags) : CQVMutex(name, flags)
{
    if ((flags & QV_MUTEX_SPIN) != 0) {
        qv::platform::InitializeCriticalSectionAndSpinCount(&m_criticalSection, kSpinCount);
    } else {
        qv::platform::InitializeCriticalSection(&m_criticalSection);
    }
}

CQVCoreMutexImpl::~CQVCoreMutexImpl()
{
    qv::platform::DeleteCriticalSection(&m_criticalSection);
}

QVRESULT CQVCoreMutexImpl::Acquire()
{
    static_assert(S_OK == 0);
    return qv::platform::EnterCriticalSection(&m_criticalSection);
}

QVRESULT CQVCoreMutexImpl::TryAcquire()
{
    return qv::platform::TryEnterCriticalSection(&m_criticalSection) != 0 ? S_OK : E_FAIL;
}

QVRESULT CQVCoreMutexImpl::Release()
{
    qv::platform::LeaveCriticalSection(&m_criticalSection);
    return S_OK;
}

QVRESULT CQVCoreMutexImpl::GetStats(QVLockStats* /*out*/)
{
    return E_NOTIMPL;
}

void CQVCoreMutexImpl::ResetStats() {}

std::int32_t CQVCoreMutexImpl::AssertOwnership(std::int16_t /*expectOwned*/)
{
    return 1;
}

void* CQVCoreMutexImpl::GetOSMutex()
{
    return &m_criticalSection;
}

namespace qv::core
{

QVRESULT CQVMutexProvider::CreateMutex(const char* name, std::uint32_t flags, IMutex** out)
{
    return Boundary([&] {
        std::uint32_t effective = flags;
        if ((effective & QV_MUTEX_UNTRACKED) != 0) {
            effective &= ~QV_MUTEX_STATS;
        }
        IMutex* const mutex = (effective & (QV_MUTEX_CHECKED | QV_MUTEX_STATS)) != 0
                                  ? new CQVCoreMutexChecked(name, effective)
                                  : new CQVCoreMutexImpl(name, effective);
        mutex->RaiseCount();
        *out = mutex;
    });
}

} // namespace qv::core
