// Objects that a thread can wait for, and the waits.
//
// A handle is the address of its object: no table and no lock on the way to a wait. Each kind of
// object stands in a file of its own and derives from KernelObject; the calls that take any kind
// ask the object.
#pragma once

#include "platform/deadline.h"
#include "platform/types.h"

namespace qv::platform
{

inline constexpr DWORD WAIT_OBJECT_0 = 0;
inline constexpr DWORD WAIT_ABANDONED = 0x80;
inline constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;
inline constexpr DWORD ERROR_NOT_OWNER = 288;
inline constexpr DWORD ERROR_TOO_MANY_POSTS = 298;
inline constexpr DWORD ERROR_TIMEOUT = 1460;

enum class ObjectKind : std::uint8_t
{
    ManualEvent,
    AutoEvent,
    Semaphore,
    NamedSemaphore,
    NamedMutex,
    Thread,
};

class KernelObject
{
public:
    explicit KernelObject(ObjectKind kind) : m_kind(kind) {}
    KernelObject(const KernelObject&) = delete;
    KernelObject& operator=(const KernelObject&) = delete;

    ObjectKind Kind() const { return m_kind; }
    // WAIT_OBJECT_0, or WAIT_ABANDONED of a mutex; WAIT_TIMEOUT; WAIT_FAILED with the last error
    // set.
    virtual DWORD Wait(const Deadline& deadline) = 0;
    // Gives up what the handle stands for; the object is not to be used afterwards.
    virtual void Close() = 0;

protected:
    ~KernelObject() = default;

private:
    ObjectKind m_kind;
};

using HANDLE = KernelObject*;

// The pseudo handles. A wait for either never passes, closing one has no effect.
inline HANDLE GetCurrentProcess()
{
    return reinterpret_cast<HANDLE>(std::intptr_t{-1});
}
inline HANDLE GetCurrentThread()
{
    return reinterpret_cast<HANDLE>(std::intptr_t{-2});
}

// Neither null nor a pseudo handle.
inline bool IsObject(HANDLE handle)
{
    return reinterpret_cast<std::uintptr_t>(handle) - 1 <
           reinterpret_cast<std::uintptr_t>(GetCurrentThread()) - 1;
}

struct SECURITY_ATTRIBUTES;

extern "C"
{
    // Null with error 14 without memory. There are no named events: attributes and name are null.
    HANDLE CreateEventA(const SECURITY_ATTRIBUTES* attributes, BOOL manualReset, BOOL initialState,
                        const char* name);
    // Error 6 for what is no event.
    BOOL SetEvent(HANDLE event);
    BOOL ResetEvent(HANDLE event);
    // Null with error 87 unless 0 <= initial <= maximum and maximum >= 1; 14 without memory. With a
    // name: see OpenNamedSemaphore.
    HANDLE CreateSemaphoreA(const SECURITY_ATTRIBUTES* attributes, LONG initialCount,
                            LONG maximumCount, const char* name);
    // Errors: 298 if the count would pass its maximum, and nothing changes; 87 for a count below 1;
    // 6 for what is no semaphore. The previous count may be null.
    BOOL ReleaseSemaphore(HANDLE semaphore, LONG count, LONG* previousCount);
    // A mutex that processes share. It belongs to the handle that took it, not to a thread, and
    // does not nest. When the process of its owner dies, the next wait takes it and gives
    // WAIT_ABANDONED: what it guards is as it was left. Named; one that was there already gets no
    // initial owner. Errors as for a semaphore.
    HANDLE CreateMutexA(const SECURITY_ATTRIBUTES* attributes, BOOL initialOwner, const char* name);
    // Errors: 288 unless it belongs to this handle; 6 for what is no mutex.
    BOOL ReleaseMutex(HANDLE mutex);
    // As KernelObject::Wait. Error 6 for null.
    DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds);
    // Error 6 for null.
    BOOL CloseHandle(HANDLE object);
}

} // namespace qv::platform
