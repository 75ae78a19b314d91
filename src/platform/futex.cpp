#include "platform/futex.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/error.h"

namespace qv::platform
{

void FutexWait(const std::atomic<std::uint32_t>& word, std::uint32_t expected)
{
    const KeepErrno keep;
    syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, expected, nullptr, nullptr, 0);
}

void FutexWake(const std::atomic<std::uint32_t>* word, int count)
{
    const KeepErrno keep;
    syscall(SYS_futex, word, FUTEX_WAKE_PRIVATE, count, nullptr, nullptr, 0);
}

} // namespace qv::platform
