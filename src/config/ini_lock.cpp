#include "config/ini_lock.h"

#include <qvcore6/thread.h>

#include "frame/exception.h"
#include "locks/restricted_attributes.h"
#include "platform/error.h"

namespace qv::core
{

namespace
{

constexpr char kName[] = "QVCore_IniFileLock";
constexpr char kOwnerName[] = "OWN:QVCore_IniFileLock";

// For every authenticated user, as the semaphore is. Held if it is new.
platform::HANDLE OpenOwner(bool& isNew)
{
    constexpr platform::DWORD kMutexAllAccess = 0x1F0001;
    const RestrictedAttributes attributes(kMutexAllAccess);
    platform::HANDLE const owner =
        platform::CreateMutexA(attributes.Get(), platform::kTrue, kOwnerName);
    if (owner == nullptr) {
        ThrowLastError();
    }
    isNew = platform::GetLastError() != platform::ERROR_ALREADY_EXISTS;
    return owner;
}

} // namespace

IniLock::IniLock()
{
    bool isNew = false;
    m_owner = OpenOwner(isNew);
    if (const QVRESULT result = QVNamedSemOpen(kName, 1, &m_semaphore); result < 0) {
        platform::CloseHandle(m_owner);
        throw EQVCoreException(result);
    }
    // The mutex of a dead owner who was its only user has gone with him. So nobody gets a new one
    // before this is settled.
    if (isNew && WaitInPlaceOfDead() >= 0) {
        Release();
    } else if (isNew) {
        platform::ReleaseMutex(m_owner); // no unit was taken
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
    if (waited != platform::WAIT_OBJECT_0 && waited != platform::WAIT_ABANDONED) {
        ThrowLastError();
    }
    const QVRESULT result =
        waited == platform::WAIT_ABANDONED ? WaitInPlaceOfDead() : QVSemaphoreWait(m_semaphore);
    if (result < 0) {
        platform::ReleaseMutex(m_owner);
        throw EQVCoreException(result);
    }
}

// Who uses the semaphore alone, without the mutex, may have its unit at this moment. If nobody
// gives it back in a while, it is the dead one's, and is held in his stead.
QVRESULT IniLock::WaitInPlaceOfDead()
{
    constexpr QVRESULT kNoUnit = E_FAIL;
    constexpr int kPatience = 1000; // ms
    QVRESULT result = QVSemaphoreTryWait(m_semaphore);
    for (int waited = 0; waited < kPatience && result == kNoUnit; ++waited) {
        QVSleep(1);
        result = QVSemaphoreTryWait(m_semaphore);
    }
    return result == kNoUnit ? S_OK : result;
}

QVRESULT IniLock::Release()
{
    const QVRESULT result = QVSemaphorePost(m_semaphore);
    platform::ReleaseMutex(m_owner);
    return result;
}

} // namespace qv::core
