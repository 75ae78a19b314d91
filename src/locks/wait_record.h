// What the handle of an event, a gate or a semaphore is the address of.
#pragma once

#include <cstdint>
#include <string>

#include <qvcore6/result.h>

#include "frame/exception.h"
#include "platform/error.h"
#include "platform/event_object.h"
#include "platform/wait.h"

namespace qv::core
{

struct WaitRecord
{
    WaitRecord(const char* name, std::uint32_t flags)
        : m_name(name != nullptr ? name : ""), m_flags(flags)
    {}
    ~WaitRecord()
    {
        if (m_handle != nullptr) {
            platform::CloseHandle(m_handle);
        }
    }
    // Throws the code of the last error if there is none.
    void Own(platform::HANDLE made)
    {
        if (made == nullptr) {
            ThrowLastError();
        }
        m_handle = made;
    }

    WaitRecord(const WaitRecord&) = delete;
    WaitRecord& operator=(const WaitRecord&) = delete;

    platform::HANDLE m_handle = nullptr;
    std::string m_name; // for its owner: no platform object bears it
    std::uint32_t m_flags;
};

// The result of a platform call that has failed, for callers that let no exception come up.
inline QVRESULT ResultOfLastError()
{
    return QVResultFromNative(platform::GetLastError());
}

inline QVRESULT ResultOfCall(platform::BOOL done)
{
    return done != platform::kFalse ? S_OK : ResultOfLastError();
}

// The result of a wait that did not pass at once, with the one for a wait that ran out of time.
inline QVRESULT ResultOfWait(platform::HANDLE handle, platform::DWORD milliseconds,
                             QVRESULT outOfTime)
{
    const platform::DWORD answer = platform::WaitForSingleObject(handle, milliseconds);
    if (answer == platform::WAIT_OBJECT_0) {
        return S_OK;
    }
    return answer == platform::WAIT_FAILED ? ResultOfLastError() : outOfTime;
}

// The object behind the handle, for what needs one operation on it; the calls do the rest. The
// record says of what kind it is.
template <class Object> Object* ObjectOf(const WaitRecord& record)
{
    return static_cast<Object*>(record.m_handle);
}

inline QVRESULT SetEventOf(const WaitRecord& record)
{
    auto* const event = ObjectOf<platform::EventObject>(record);
    if (event != nullptr && event->TrySet()) [[likely]] {
        return S_OK;
    }
    return ResultOfCall(platform::SetEvent(event));
}

inline QVRESULT ResetEventOf(const WaitRecord& record)
{
    auto* const event = ObjectOf<platform::EventObject>(record);
    if (event != nullptr) [[likely]] {
        event->Reset();
        return S_OK;
    }
    return ResultOfCall(platform::ResetEvent(event));
}

inline QVRESULT WaitForEventOf(const WaitRecord& record, bool isManual,
                               platform::DWORD milliseconds, QVRESULT outOfTime)
{
    auto* const event = ObjectOf<platform::EventObject>(record);
    if (event != nullptr && (isManual ? event->IsSignalled() : event->TryTake())) [[likely]] {
        return S_OK;
    }
    return ResultOfWait(event, milliseconds, outOfTime);
}

} // namespace qv::core
