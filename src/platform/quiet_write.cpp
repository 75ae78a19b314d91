#include "platform/quiet_write.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <ctime>

#include "platform/error.h"

namespace qv::platform
{

namespace
{

// RWF_NOSIGNAL, younger than the headers.
constexpr int kNoSignal = 0x100;

// The kernel has no such flag, or a sandbox forbids the call. Learnt from its first refusal.
constinit std::atomic<bool> g_flagIsUnknown{false};

// This thread gets no SIGPIPE while one lives, and is left with none of its own making.
class WithoutPipeSignal
{
public:
    WithoutPipeSignal()
    {
        sigemptyset(&m_pipe);
        sigaddset(&m_pipe, SIGPIPE);
        sigset_t pending;
        sigpending(&pending);
        m_wasPending = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &m_pipe, &m_before);
    }
    ~WithoutPipeSignal()
    {
        if (m_isRaised && !m_wasPending) {
            const timespec now{};
            while (sigtimedwait(&m_pipe, nullptr, &now) < 0 && errno == EINTR) {
            }
        }
        pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
    }
    WithoutPipeSignal(const WithoutPipeSignal&) = delete;
    WithoutPipeSignal& operator=(const WithoutPipeSignal&) = delete;

    ssize_t Write(int file, const char* bytes, std::size_t count)
    {
        const ssize_t written = syscall(SYS_write, file, bytes, count);
        m_isRaised = m_isRaised || (written < 0 && errno == EPIPE);
        return written;
    }

private:
    sigset_t m_pipe;
    sigset_t m_before;
    bool m_wasPending;
    bool m_isRaised = false;
};

} // namespace

// By the bare calls: the C library's would be points where the thread can be cancelled.
ssize_t WriteOnceQuietly(int file, const char* bytes, std::size_t count)
{
    if (!g_flagIsUnknown.load(std::memory_order_relaxed)) {
        const iovec piece = {const_cast<char*>(bytes), count};
        constexpr long kHere = -1; // at the descriptor's own position, in both halves
        const ssize_t written = syscall(SYS_pwritev2, file, &piece, 1, kHere, kHere, kNoSignal);
        const bool isRefused = written < 0 && (errno == EOPNOTSUPP || errno == EINVAL ||
                                               errno == ENOSYS || errno == EPERM);
        if (!isRefused) {
            return written;
        }
        g_flagIsUnknown.store(true, std::memory_order_relaxed);
    }
    return WithoutPipeSignal().Write(file, bytes, count);
}

bool WriteQuietly(int file, const char* bytes, std::size_t count)
{
    const KeepErrno keep;
    while (count != 0) {
        const ssize_t written = WriteOnceQuietly(file, bytes, count);
        if (written > 0) {
            bytes += written;
            count -= static_cast<std::size_t>(written);
        } else if (written == 0 || errno != EINTR) {
            return written == 0 || errno != EBADF;
        }
    }
    return true;
}

} // namespace qv::platform
