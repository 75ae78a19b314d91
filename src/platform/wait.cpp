#include "platform/wait.h"

#include <atomic>
#include <new>

#include "platform/error.h"
#include "platform/event_object.h"
#include "platform/futex.h"
#include "platform/named_semaphore.h"
#include "platform/unnamed_semaphore.h"

namespace qv::platform
{

namespace
{

EventObject* EventOf(HANDLE handle)
{
    const bool isEvent = IsObject(handle) && (handle->Kind() == ObjectKind::ManualEvent ||
                                              handle->Kind() == ObjectKind::AutoEvent);
    return isEvent ? static_cast<EventObject*>(handle) : nullptr;
}

UnnamedSemaphore* SemaphoreOf(HANDLE handle)
{
    const bool isSemaphore = IsObject(handle) && handle->Kind() == ObjectKind::Semaphore;
    return isSemaphore ? static_cast<UnnamedSemaphore*>(handle) : nullptr;
}

NamedSemaphore* NamedSemaphoreOf(HANDLE handle)
{
    const bool isNamed = IsObject(handle) && handle->Kind() == ObjectKind::NamedSemaphore;
    return isNamed ? static_cast<NamedSemaphore*>(handle) : nullptr;
}

BOOL Fail(DWORD error)
{
    SetLastError(error);
    return kFalse;
}

HANDLE OrOutOfMemory(HANDLE made)
{
    if (made == nullptr) {
        SetLastError(ERROR_OUTOFMEMORY);
    }
    return made;
}

// For one's own thread or process: neither ends while the caller waits.
DWORD WaitInVain(const Deadline& deadline)
{
    const std::atomic<std::uint32_t> never{0};
    while (FutexWaitUntil(never, 0, deadline)) {
    }
    return WAIT_TIMEOUT;
}

} // namespace

HANDLE CreateEventA(const SECURITY_ATTRIBUTES* /*attributes*/, BOOL manualReset, BOOL initialState,
                    const char* /*name*/)
{
    const ObjectKind kind = manualReset != kFalse ? ObjectKind::ManualEvent : ObjectKind::AutoEvent;
    return OrOutOfMemory(new (std::nothrow) EventObject(kind, initialState != kFalse));
}

BOOL SetEvent(HANDLE event)
{
    EventObject* const object = EventOf(event);
    if (object == nullptr) {
        return Fail(ERROR_INVALID_HANDLE);
    }
    object->Set();
    return kTrue;
}

BOOL ResetEvent(HANDLE event)
{
    EventObject* const object = EventOf(event);
    if (object == nullptr) {
        return Fail(ERROR_INVALID_HANDLE);
    }
    object->Reset();
    return kTrue;
}

HANDLE CreateSemaphoreA(const SECURITY_ATTRIBUTES* attributes, LONG initialCount, LONG maximumCount,
                        const char* name)
{
    if (initialCount < 0 || maximumCount < 1 || initialCount > maximumCount) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    if (name != nullptr) {
        return OpenNamedSemaphore(attributes, initialCount, maximumCount, name);
    }
    return OrOutOfMemory(new (std::nothrow) UnnamedSemaphore(initialCount, maximumCount));
}

BOOL ReleaseSemaphore(HANDLE semaphore, LONG count, LONG* previousCount)
{
    NamedSemaphore* const named = NamedSemaphoreOf(semaphore);
    UnnamedSemaphore* const object = SemaphoreOf(semaphore);
    if (object == nullptr && named == nullptr) {
        return Fail(ERROR_INVALID_HANDLE);
    }
    if (count < 1) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    if (named != nullptr) {
        const DWORD error = named->Post(count, previousCount);
        return error == ERROR_SUCCESS ? kTrue : Fail(error);
    }
    return object->Post(count, previousCount) ? kTrue : Fail(ERROR_TOO_MANY_POSTS);
}

DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds)
{
    if (object == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    const Deadline deadline = Deadline::After(milliseconds);
    return IsObject(object) ? object->Wait(deadline) : WaitInVain(deadline);
}

BOOL CloseHandle(HANDLE object)
{
    if (IsObject(object)) {
        object->Close();
        return kTrue;
    }
    return object != nullptr ? kTrue : Fail(ERROR_INVALID_HANDLE);
}

} // namespace qv::platform
