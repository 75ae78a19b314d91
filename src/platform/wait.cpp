#include "platform/wait.h"

#include <atomic>
#include <new>

#include "platform/auto_event.h"
#include "platform/error.h"
#include "platform/futex.h"
#include "platform/manual_event.h"
#include "platform/unnamed_semaphore.h"

namespace qv::platform
{

namespace
{

// What no object has as its address: null and the pseudo handles.
bool IsObject(HANDLE handle)
{
    return reinterpret_cast<std::uintptr_t>(handle) - 1 <
           reinterpret_cast<std::uintptr_t>(GetCurrentThread()) - 1;
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

DWORD WaitForOther(HANDLE object, DWORD milliseconds)
{
    if (IsObject(object)) {
        return object->Wait(Deadline::After(milliseconds));
    }
    if (object != nullptr) {
        return WaitInVain(Deadline::After(milliseconds));
    }
    SetLastError(ERROR_INVALID_HANDLE);
    return WAIT_FAILED;
}

template <class Object> DWORD WaitFor(Object& object, bool passed, DWORD milliseconds)
{
    if (passed) [[likely]] {
        return WAIT_OBJECT_0;
    }
    return milliseconds == 0 ? WAIT_TIMEOUT : object.Object::Wait(Deadline::After(milliseconds));
}

} // namespace

HANDLE CreateEventA(const SECURITY_ATTRIBUTES* /*attributes*/, BOOL manualReset, BOOL initialState,
                    const char* /*name*/)
{
    const bool isSignalled = initialState != kFalse;
    if (manualReset != kFalse) {
        return OrOutOfMemory(new (std::nothrow) ManualEvent(isSignalled));
    }
    return OrOutOfMemory(new (std::nothrow) AutoEvent(isSignalled));
}

BOOL SetEvent(HANDLE event)
{
    if (IsObject(event)) [[likely]] {
        if (event->Kind() == ObjectKind::ManualEvent) {
            static_cast<ManualEvent*>(event)->Set();
            return kTrue;
        }
        if (event->Kind() == ObjectKind::AutoEvent) {
            static_cast<AutoEvent*>(event)->Set();
            return kTrue;
        }
    }
    return Fail(ERROR_INVALID_HANDLE);
}

BOOL ResetEvent(HANDLE event)
{
    if (IsObject(event)) [[likely]] {
        if (event->Kind() == ObjectKind::ManualEvent) {
            static_cast<ManualEvent*>(event)->Reset();
            return kTrue;
        }
        if (event->Kind() == ObjectKind::AutoEvent) {
            static_cast<AutoEvent*>(event)->Reset();
            return kTrue;
        }
    }
    return Fail(ERROR_INVALID_HANDLE);
}

HANDLE CreateSemaphoreA(const SECURITY_ATTRIBUTES* /*attributes*/, LONG initialCount,
                        LONG maximumCount, const char* name)
{
    if (initialCount < 0 || maximumCount < 1 || initialCount > maximumCount) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    if (name != nullptr) {
        // Refused rather than given as a semaphore that nobody else can reach.
        SetLastError(ERROR_CALL_NOT_IMPLEMENTED);
        return nullptr;
    }
    return OrOutOfMemory(new (std::nothrow) UnnamedSemaphore(initialCount, maximumCount));
}

BOOL ReleaseSemaphore(HANDLE semaphore, LONG count, LONG* previousCount)
{
    if (!IsObject(semaphore) || semaphore->Kind() != ObjectKind::Semaphore) [[unlikely]] {
        return Fail(ERROR_INVALID_HANDLE);
    }
    if (count < 1) [[unlikely]] {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    if (!static_cast<UnnamedSemaphore*>(semaphore)->Post(count, previousCount)) [[unlikely]] {
        return Fail(ERROR_TOO_MANY_POSTS);
    }
    return kTrue;
}

DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds)
{
    // A wait that passes at once reads no clock.
    if (IsObject(object)) [[likely]] {
        if (object->Kind() == ObjectKind::ManualEvent) {
            auto& event = *static_cast<ManualEvent*>(object);
            return WaitFor(event, event.IsSignalled(), milliseconds);
        }
        if (object->Kind() == ObjectKind::AutoEvent) {
            auto& event = *static_cast<AutoEvent*>(object);
            return WaitFor(event, event.TryTake(), milliseconds);
        }
        if (object->Kind() == ObjectKind::Semaphore) {
            auto& semaphore = *static_cast<UnnamedSemaphore*>(object);
            return WaitFor(semaphore, semaphore.TryTake(), milliseconds);
        }
    }
    return WaitForOther(object, milliseconds);
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
