// Semaphores that processes share by name.
//
// The count, and one bit for "somebody may sleep", are one shared word; a unit is never handed to a
// chosen waiter, as one that has been killed would keep it. A waiter that is killed after it was
// woken takes that wake-up with it, so everybody looks again from time to time. The bit heals
// itself: who took a unit after a sleep leaves it set for the others, and a post that then finds
// nobody to wake takes it away.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/named_object.h"
#include "platform/wait.h"

namespace qv::platform
{

class NamedSemaphore final : public KernelObject
{
public:
    NamedSemaphore() : KernelObject(ObjectKind::NamedSemaphore) {}

    // 0 and 183 as for NamedObject.
    DWORD Open(const SECURITY_ATTRIBUTES* attributes, LONG initialCount, LONG maximumCount,
               const char* name);

    // Errors: 298 if the count would pass its maximum; 6 after the module's end.
    DWORD Post(LONG count, LONG* previousCount);
    DWORD Wait(const Deadline& deadline) override;
    void Close() override { delete this; }

private:
    std::uint32_t m_maximum = 0; // the creator's
    NamedObject m_object;
};

// The named form of CreateSemaphoreA, counts already tested. The last error is 183 if the object
// existed, 0 if it was made here. Null on failure, with the last error set.
HANDLE OpenNamedSemaphore(const SECURITY_ATTRIBUTES* attributes, LONG initialCount,
                          LONG maximumCount, const char* name);

} // namespace qv::platform
