// The model of a futex, found instead of the real one by explored sources.
#pragma once

#include <cstdint>

#include "interleavings/explored_atomic.h"
#include "platform/deadline.h"

namespace qv::platform
{

inline bool SpinUntilChanged(const explore::Atomic<std::uint32_t>& word, std::uint32_t expected,
                             explore::Where where = explore::Here())
{
    return word.load(std::memory_order_acquire, where) != expected;
}
void FutexWait(const explore::Atomic<std::uint32_t>& word, std::uint32_t expected,
               explore::Where where = explore::Here());
// Any deadline between now and never may pass at any moment.
bool FutexWaitUntil(const explore::Atomic<std::uint32_t>& word, std::uint32_t expected,
                    const Deadline& deadline, explore::Where where = explore::Here());
void FutexWake(const explore::Atomic<std::uint32_t>* word, int count,
               explore::Where where = explore::Here());

} // namespace qv::platform
