#include "platform/quiet_write.h"

#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <ctime>

#include "platform/error.h"

// By the bare calls: the C library's would be points where the thread can be cancelled.

namespace qv::platform
{

namespace
{

// RWF_NOSIGNAL, younger than the headers.
constexpr int kNoSignal = 0x100;

// The kernel has no such flag, or a sandbox forbids the call. Learnt from its first refusal.
constinit std::atomic<bool> g_flagIsUnknown{false};

// Set at load.
constinit bool g_hasFileLimit = false;

// This thread gets none of the signals of a failed write while one lives, and is left with none of
// its own making.
class WithoutWriteSignals
{
public:
    WithoutWriteSignals()
    {
        sigset_t blocked = SetOf(SIGPIPE);
        sigaddset(&blocked, SIGXFSZ);
        sigpending(&m_pending);
        pthread_sigmask(SIG_BLOCK, &blocked, &m_before);
    }
    ~WithoutWriteSignals()
    {
        const KeepErrno keep;
        if (m_raised != 0 && sigismember(&m_pending, m_raised) == 0) {
            const sigset_t raised = SetOf(m_raised);
            const timespec now{};
            while (sigtimedwait(&raised, nullptr, &now) < 0 && errno == EINTR) {
            }
        }
        pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
    }
    WithoutWriteSignals(const WithoutWriteSignals&) = delete;
    WithoutWriteSignals& operator=(const WithoutWriteSignals&) = delete;

    ssize_t Write(int file, const char* bytes, std::size_t count)
    {
        const ssize_t written = syscall(SYS_write, file, bytes, count);
        if (written < 0) {
            m_raised = errno == EPIPE ? SIGPIPE : errno == EFBIG ? SIGXFSZ : 0;
        }
        return written;
    }

private:
    static sigset_t SetOf(int signal)
    {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, signal);
        return set;
    }

    sigset_t m_pending;
    sigset_t m_before;
    int m_raised = 0;
};

bool IsStream(int file)
{
    struct stat status = {};
    return fstat(file, &status) != 0 || S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode);
}

} // namespace

void TakeFileLimit()
{
    rlimit limit = {};
    g_hasFileLimit = getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur != RLIM_INFINITY;
}

bool HasFileLimit()
{
    return g_hasFileLimit;
}

ssize_t WriteOnce(int file, const char* bytes, std::size_t count)
{
    if (g_hasFileLimit) {
        return WriteOnceQuietly(file, bytes, count);
    }
    const bool triesFlag = !g_flagIsUnknown.load(std::memory_order_relaxed);
    if (triesFlag) {
        const iovec piece = {const_cast<char*>(bytes), count};
        constexpr long kHere = -1; // at the descriptor's own position, in both halves
        const ssize_t written = syscall(SYS_pwritev2, file, &piece, 1, kHere, kHere, kNoSignal);
        const bool isRefused = written < 0 && (errno == EOPNOTSUPP || errno == EINVAL ||
                                               errno == ENOSYS || errno == EPERM);
        if (!isRefused) {
            return written;
        }
    }
    const ssize_t written = IsStream(file) ? WriteOnceQuietly(file, bytes, count)
                                           : syscall(SYS_write, file, bytes, count);
    // What the bare call is refused as well says nothing about the flag.
    if (triesFlag && written >= 0) {
        g_flagIsUnknown.store(true, std::memory_order_relaxed);
    }
    return written;
}

ssize_t WriteOnceQuietly(int file, const char* bytes, std::size_t count)
{
    return WithoutWriteSignals().Write(file, bytes, count);
}

bool WriteQuietly(int file, const char* bytes, std::size_t count)
{
    const KeepErrno keep;
    while (count != 0) {
        const ssize_t written = WriteOnce(file, bytes, count);
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
