#include "config/ini_lock.h"

#include <qvcore6/security.h>
#include <qvcore6/thread.h>

#include <memory>

#include "frame/exception.h"
#include "platform/security.h"

namespace qv::core
{

namespace
{

constexpr char kName[] = "QVCore_IniFileLock";
constexpr char kOwnerName[] = "OWN:QVCore_IniFileLock";

// For every authenticated user, as the semaphore is.
platform::HANDLE OpenOwner()
{
    constexpr platform::DWORD kMutexAllAccess = 0x1F0001;
    QVSecurityDescriptor descriptor;
    void* list = nullptr;
    const QVRESULT built = QVWinBuildRestrictedSD(&descriptor, kMutexAllAccess, &list);
    const std::unique_ptr<void, decltype(&QVWinFreeRestrictedSD)> freed(list,
                                                                        &QVWinFreeRestrictedSD);
    ThrowIfFailed(built);
    const platform::SECURITY_ATTRIBUTES attributes = {sizeof attributes, &descriptor,
                                                      platform::kTrue};
    platform::HANDLE const owner =
        platform::CreateMutexA(&attributes, platform::kFalse, kOwnerName);
    if (owner == nullptr) {
        ThrowLastError();
    }
    return owner;
}

} // namespace

IniLock::IniLock()
{
    m_owner = OpenOwner();
    if (const QVRESULT result = QVNamedSemOpen(kName, 1, &m_semaphore); result < 0) {
        platform::CloseHandle(m_owner);
        throw EQVCoreException(result);
    }
}

IniLock::~IniLock()
{
    QVNamedSemClose(m_semaphore);
    platform::CloseHandle(m_owner);
}

void IniLock::Acquire()
{
    const platform::DWORD waited = platform::WaitForSingleObject(m_owner, platform::INFINITE);
    if (waited == platform::WAIT_ABANDONED) {
        AcquireFromDead();
        return;
    }
    if (waited != platform::WAIT_OBJECT_0) {
        ThrowLastError();
    }
    if (const QVRESULT result = QVSemaphoreWait(m_semaphore); result < 0) {
        platform::ReleaseMutex(m_owner);
        throw EQVCoreException(result);
    }
}

// Who uses the semaphore alone, without the mutex, may have its unit at this moment. If nobody
// gives it back in a while, it is the dead one's, and is held in his stead.
void IniLock::AcquireFromDead()
{
    constexpr int kPatience = 1000; // ms
    for (int waited = 0; waited < kPatience && QVSemaphoreTryWait(m_semaphore) < 0; ++waited) {
        QVSleep(1);
    }
}

void IniLock::Release()
{
    const QVRESULT result = QVSemaphorePost(m_semaphore);
    platform::ReleaseMutex(m_owner);
    ThrowIfFailed(result);
}

IniLockHold::~IniLockHold()
{
    if (m_lock != nullptr) {
        try {
            m_lock->Release();
        } catch (const EQVCoreException&) {
            // What is on its way out says more.
        }
    }
}

} // namespace qv::core
