// What the table keeps of one thread.
#pragma once

#include <atomic>
#include <cstdint>

#include "frame/ref_counted.h"
#include "platform/wait.h"

// Ends without closing its handle: threads that nobody gave up keep theirs when the library stops.
class CQVThreadData : public CQVCoreRefCounted
{
public:
    explicit CQVThreadData(qv::platform::HANDLE handle) : m_handle(handle) {}

    // The first thread, which was there before the library: no handle that anybody could wait for.
    bool IsAdopted() const { return m_handle == qv::platform::GetCurrentThread(); }

    const qv::platform::HANDLE m_handle;
    // Written under the table's mutex. The caller no longer holds the thread, and its handle is
    // closed or will be by the last one that uses it.
    std::atomic<bool> m_detached{false};
    // The entry function has returned.
    std::atomic<bool> m_finished{false};

    // Under the table's mutex. Joins and detaches that are using the handle, and whether one of
    // them, and so no later one, gave up the thread.
    std::uint32_t m_uses = 0;
    bool m_givenUp = false;
};
