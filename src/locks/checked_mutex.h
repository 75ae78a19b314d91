// The mutex with ownership checks, statistics, or both, as its flags say.
#pragma once

#include <atomic>
#include <cstdint>

#include "locks/mutex.h"

class CQVCoreMutexChecked : public CQVCoreMutexImpl
{
public:
    CQVCoreMutexChecked(const char* name, std::uint32_t flags);

    QVRESULT Acquire() override;
    QVRESULT TryAcquire() override;
    QVRESULT Release() override;
    QVRESULT GetStats(QVLockStats* out) override;
    void ResetStats() override;
    std::int32_t AssertOwnership(std::int16_t expectOwned) override;

protected:
    // Written by the holder, and by a reset; read by anybody. Whole, but in no order.
    using Number = std::atomic<std::int64_t>;

    std::atomic<std::uint32_t> m_owner{0}; // thread id of the holder; 0 at depth 0
    std::int64_t m_holdStart = 0;          // clock at the outermost acquire
    Number m_maxAcquireTime{0};            // times are in ticks of the clock
    Number m_totalAcquireTime{0};
    Number m_acquireCount{0};
    Number m_maxHeldTime{0};
    Number m_totalHeldTime{0};
    Number m_heldCount{0};
    std::uint16_t m_lockDepth = 0; // levels that the holder holds

    static std::atomic<std::int64_t> s_counterFrequency;

private:
    // Out of the way of a mutex without statistics that nobody holds.
    [[gnu::noinline]] QVRESULT AcquireInSteps();
    [[gnu::noinline]] QVRESULT ReleaseInSteps();
    QVRESULT preAcquire() const;
    QVRESULT postAcquire(std::int64_t start);
    QVRESULT preRelease() const;
    void CountAcquire(std::int64_t start);
    void CountRelease();
    bool IsOwner() const;
};
