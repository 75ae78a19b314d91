#include "platform/futex.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "platform/error.h"
#include "platform/processor.h"

namespace qv::platform
{

namespace
{

// False once the deadline, which comes some time, has passed.
bool WaitUntil(const std::atomic<std::uint32_t>& word, std::uint32_t expected, int operation,
               const Deadline& deadline)
{
    if (deadline.IsNow()) {
        return false;
    }
    const KeepErrno keep;
    const timespec until = deadline.Time();
    // Absolute and monotonic, unlike FUTEX_WAIT, which would start anew after a signal.
    return syscall(SYS_futex, &word, operation, expected, &until, nullptr,
                   FUTEX_BITSET_MATCH_ANY) == 0 ||
           errno != ETIMEDOUT;
}

} // namespace

bool SpinUntilChanged(const std::atomic<std::uint32_t>& word, std::uint32_t expected)
{
    constexpr int kRounds = 100;
    for (int round = HasSeveralProcessors() ? 0 : kRounds; round < kRounds; ++round) {
        if (word.load(std::memory_order_acquire) != expected) {
            return true;
        }
        PauseProcessor();
    }
    return false;
}

void FutexWait(const std::atomic<std::uint32_t>& word, std::uint32_t expected)
{
    const KeepErrno keep;
    syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, expected, nullptr, nullptr, 0);
}

bool FutexWaitUntil(const std::atomic<std::uint32_t>& word, std::uint32_t expected,
                    const Deadline& deadline)
{
    if (deadline.IsForever()) {
        FutexWait(word, expected);
        return true;
    }
    return WaitUntil(word, expected, FUTEX_WAIT_BITSET_PRIVATE, deadline);
}

bool SharedFutexWaitUntil(const std::atomic<std::uint32_t>& word, std::uint32_t expected,
                          const Deadline& deadline)
{
    return WaitUntil(word, expected, FUTEX_WAIT_BITSET, deadline);
}

int SharedFutexWake(const std::atomic<std::uint32_t>* word, int count)
{
    const KeepErrno keep;
    const long woken = syscall(SYS_futex, word, FUTEX_WAKE, count, nullptr, nullptr, 0);
    return woken > 0 ? static_cast<int>(woken) : 0;
}

void FutexWake(const std::atomic<std::uint32_t>* word, int count)
{
    const KeepErrno keep;
    syscall(SYS_futex, word, FUTEX_WAKE_PRIVATE, count, nullptr, nullptr, 0);
}

} // namespace qv::platform
