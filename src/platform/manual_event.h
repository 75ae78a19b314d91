// Manual-reset events: signalled until they are reset; a set frees all who wait.
//
// The word holds whether the event is signalled, whether somebody may sleep on it, and the
// generation: the number of sets that found sleepers. A waiter goes when the event is signalled or
// the generation is not the one that it started with, so a reset right behind a set holds nobody
// back who waited for that set.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/wait.h"

namespace qv::platform
{

class ManualEvent final : public KernelObject
{
public:
    explicit ManualEvent(bool isSignalled)
        : KernelObject(ObjectKind::ManualEvent), m_word(isSignalled ? kSignalled : 0)
    {}

    // Whoever passes may destroy the event at once: nothing is read of it after the exchange.
    void Set()
    {
        // What is usual is tried without a look.
        std::uint32_t seen = 0;
        if (!m_word.compare_exchange_strong(seen, kSignalled)) {
            SetFrom(seen);
        }
    }
    // Always a write: what the caller looks at next, it looks at after the reset.
    void Reset() { m_word.fetch_and(~kSignalled); }
    bool IsSignalled() const { return (m_word.load(std::memory_order_acquire) & kSignalled) != 0; }

    DWORD Wait(const Deadline& deadline) override;
    void Close() override { delete this; }

private:
    static constexpr std::uint32_t kSignalled = 1;
    static constexpr std::uint32_t kAwaited = 2; // never together with kSignalled
    static constexpr std::uint32_t kGeneration = 4;

    void SetFrom(std::uint32_t seen);

    std::atomic<std::uint32_t> m_word;
};

} // namespace qv::platform
