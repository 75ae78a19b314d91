#include "locks/checked_mutex.h"

#include <qvcore6/diagnostics.h>
#include <qvcore6/lockstats.h>
#include <qvcore6/result.h>

#include <limits>

#include "platform/clock.h"
#include "platform/thread.h"

using namespace qv::platform;

constinit std::atomic<std::int64_t> CQVCoreMutexChecked::s_counterFrequency{0};

namespace
{

constexpr auto kRelaxed = std::memory_order_relaxed;

// Where the counter is missing, milliseconds stand in for it, and the frequency says so.
inline std::int64_t Clock()
{
    std::int64_t count = 0;
    return QueryPerformanceCounter(&count) != 0 ? count : std::int64_t{GetTickCount()};
}

std::int64_t Frequency()
{
    std::int64_t frequency = 0;
    return QueryPerformanceFrequency(&frequency) != 0 ? frequency : 1000;
}

// A clock may stand anywhere and jump: sums and differences wrap.
std::int64_t Sum(std::int64_t a, std::int64_t b)
{
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) + static_cast<std::uint64_t>(b));
}

std::int64_t Difference(std::int64_t end, std::int64_t start)
{
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(end) -
                                     static_cast<std::uint64_t>(start));
}

// The holder alone adds, so the two halves of an addition need not be one.
void Add(std::atomic<std::int64_t>& number, std::int64_t value)
{
    number.store(Sum(number.load(kRelaxed), value), kRelaxed);
}

void AddTime(std::atomic<std::int64_t>& total, std::atomic<std::int64_t>& longest,
             std::int64_t time)
{
    Add(total, time);
    if (time > longest.load(kRelaxed)) {
        longest.store(time, kRelaxed);
    }
}

// ticks * 1000000 / frequency, where the product alone would overflow after some days of ticks.
std::int64_t Microseconds(std::int64_t ticks, std::int64_t frequency)
{
    constexpr std::int64_t kMillion = 1'000'000;
    std::int64_t whole = 0;
    if (__builtin_mul_overflow(ticks / frequency, kMillion, &whole)) {
        return ticks < 0 ? std::numeric_limits<std::int64_t>::min()
                         : std::numeric_limits<std::int64_t>::max();
    }
    return Sum(whole, ticks % frequency * kMillion / frequency);
}

[[gnu::cold]] QVRESULT CheckFailed(const QVWChar* message)
{
    QVErrorAlert(0, u"QVCore Critical Error", message);
    return E_FAIL;
}

} // namespace

CQVCoreMutexChecked::CQVCoreMutexChecked(const char* name, std::uint32_t flags)
    : CQVCoreMutexImpl(name, flags)
{
    // Whoever comes first; all would store the same.
    if (s_counterFrequency.load(kRelaxed) == 0) {
        s_counterFrequency.store(Frequency(), kRelaxed);
    }
}

// Without the lock: only the calling thread can have put its own mark there. Not by the id, which
// is another in a forked child, and which a new thread may get from one that ended as the holder.
inline bool CQVCoreMutexChecked::IsOwner() const
{
    return m_owner.load(kRelaxed) != 0 && HoldsCriticalSection(m_criticalSection);
}

inline QVRESULT CQVCoreMutexChecked::preAcquire() const
{
    if (Has(QV_MUTEX_CHECKED | QV_MUTEX_NON_RECURSIVE) && IsOwner()) {
        return CheckFailed(u"CQVCoreMutexChecked::preAcquire m_owner check failed");
    }
    return S_OK;
}

// A start of 0 means that there is no wait to count.
inline QVRESULT CQVCoreMutexChecked::postAcquire(std::int64_t start)
{
    // One level more would count as none, and the next release would give away all of them.
    if (m_lockDepth == std::numeric_limits<std::uint16_t>::max()) [[unlikely]] {
        LeaveCriticalSection(&m_criticalSection);
        return E_FAIL;
    }
    m_owner.store(CurrentThreadId(), kRelaxed);
    if (Has(QV_MUTEX_STATS)) {
        CountAcquire(start);
    }
    ++m_lockDepth;
    return S_OK;
}

inline QVRESULT CQVCoreMutexChecked::preRelease() const
{
    if (!Has(QV_MUTEX_CHECKED)) {
        return S_OK;
    }
    if (!IsOwner()) [[unlikely]] {
        return CheckFailed(u"CQVCoreMutexChecked::preRelease m_owner check failed");
    }
    if (m_lockDepth == 0) [[unlikely]] {
        return CheckFailed(u"CQVCoreMutexChecked::preRelease m_lockDepth check failed");
    }
    if (Has(QV_MUTEX_NON_RECURSIVE) && m_lockDepth != 1) [[unlikely]] {
        return CheckFailed(
            u"CQVCoreMutexChecked::preRelease m_lockDepth non recursive check failed ");
    }
    return S_OK;
}

inline void CQVCoreMutexChecked::CountAcquire(std::int64_t start)
{
    if (m_lockDepth == 0) {
        m_holdStart = Clock();
        if (start != 0) {
            AddTime(m_totalAcquireTime, m_maxAcquireTime, Difference(m_holdStart, start));
        }
    }
    Add(m_acquireCount, 1);
}

inline void CQVCoreMutexChecked::CountRelease()
{
    if (m_lockDepth == 0) {
        AddTime(m_totalHeldTime, m_maxHeldTime, Difference(Clock(), m_holdStart));
    }
    Add(m_heldCount, 1);
}

QVRESULT CQVCoreMutexChecked::Acquire()
{
    // Nothing to count and nobody there: no check can fail.
    const std::uint32_t id = t_threadId;
    if (!Has(QV_MUTEX_STATS) && id != 0 && EnterFreeCriticalSection(&m_criticalSection))
        [[likely]] {
        m_owner.store(id, kRelaxed);
        m_lockDepth = 1;
        return S_OK;
    }
    return AcquireInSteps();
}

QVRESULT CQVCoreMutexChecked::AcquireInSteps()
{
    const std::int64_t start = Has(QV_MUTEX_STATS) ? Clock() : 0;
    if (const QVRESULT checked = preAcquire(); checked < 0) [[unlikely]] {
        return checked;
    }
    EnterCriticalSection(&m_criticalSection);
    return postAcquire(start);
}

QVRESULT CQVCoreMutexChecked::TryAcquire()
{
    if (const QVRESULT checked = preAcquire(); checked < 0) [[unlikely]] {
        return checked;
    }
    if (TryEnterCriticalSection(&m_criticalSection) == 0) {
        return E_FAIL;
    }
    return postAcquire(0); // a try has no wait
}

QVRESULT CQVCoreMutexChecked::Release()
{
    if (!Has(QV_MUTEX_STATS) && IsOwner() && m_lockDepth == 1) [[likely]] {
        m_lockDepth = 0;
        m_owner.store(0, kRelaxed);
        LeaveCriticalSection(&m_criticalSection);
        return S_OK;
    }
    return ReleaseInSteps();
}

QVRESULT CQVCoreMutexChecked::ReleaseInSteps()
{
    if (const QVRESULT checked = preRelease(); checked < 0) [[unlikely]] {
        return checked;
    }
    --m_lockDepth;
    if (m_lockDepth == 0) {
        m_owner.store(0, kRelaxed);
    }
    if (Has(QV_MUTEX_STATS)) {
        CountRelease();
    }
    LeaveCriticalSection(&m_criticalSection);
    return S_OK;
}

QVRESULT CQVCoreMutexChecked::GetStats(QVLockStats* out)
{
    const std::int64_t frequency = s_counterFrequency.load(kRelaxed);
    out->maxAcquireTime = Microseconds(m_maxAcquireTime.load(kRelaxed), frequency);
    out->totalAcquireTime = Microseconds(m_totalAcquireTime.load(kRelaxed), frequency);
    out->acquireCount = m_acquireCount.load(kRelaxed);
    out->maxHeldTime = Microseconds(m_maxHeldTime.load(kRelaxed), frequency);
    out->totalHeldTime = Microseconds(m_totalHeldTime.load(kRelaxed), frequency);
    out->heldCount = m_heldCount.load(kRelaxed);
    out->contentionCount = m_criticalSection.DebugInfo->ContentionCount.load(kRelaxed);
    return S_OK;
}

// A hold that goes on keeps its start, so that its time counts when it ends.
void CQVCoreMutexChecked::ResetStats()
{
    for (Number* const number : {&m_maxAcquireTime, &m_totalAcquireTime, &m_acquireCount,
                                 &m_maxHeldTime, &m_totalHeldTime, &m_heldCount}) {
        number->store(0, kRelaxed);
    }
    m_criticalSection.DebugInfo->ContentionCount.store(0, kRelaxed);
}

std::int32_t CQVCoreMutexChecked::AssertOwnership(std::int16_t expectOwned)
{
    if (!Has(QV_MUTEX_CHECKED)) {
        return 1;
    }
    if (IsOwner()) {
        return expectOwned;
    }
    return expectOwned == 0 ? 1 : 0;
}
