#include "platform/thread.h"

#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <new>

#include "platform/error.h"
#include "platform/futex.h"

namespace qv::platform
{

[[gnu::tls_model("initial-exec")]] constinit thread_local DWORD t_threadId = 0;

namespace
{

// How many forks this process is away from the one that loaded the module.
constinit std::atomic<std::uint32_t> g_generation{0};

// Who may call pthread_join, which takes one caller at a time. Also what the others sleep on.
enum Joining : std::uint32_t
{
    kNobody,
    kOne,
    kOneAndOthersSleep,
    kJoined,
};

DWORD ErrorFromThreads(int error)
{
    // A limit on threads is not exhausted memory, though the C library reports both alike.
    switch (error) {
    case EAGAIN:
        return ERROR_NOT_ENOUGH_MEMORY;
    case EDEADLK:
        return ERROR_POSSIBLE_DEADLOCK;
    default:
        return ErrorFromErrno(error);
    }
}

// The kernel has told the C library the id before either thread goes on, and the number of the
// thread's clock is made of it: all bits but the lower three, inverted. So nobody waits for the new
// thread to tell, nor asks the kernel. 0 for a thread that has ended.
DWORD IdOf(pthread_t thread)
{
    clockid_t clock = 0;
    return pthread_getcpuclockid(thread, &clock) == 0 ? static_cast<DWORD>(~(clock >> 3)) : 0;
}

class Thread final : public KernelObject
{
public:
    Thread(unsigned (*routine)(void*), void* argument)
        : KernelObject(ObjectKind::Thread), m_routine(routine), m_argument(argument),
          m_generation(g_generation.load(std::memory_order_relaxed))
    {}

    // An error of the C library's, 0 for none.
    int Begin(unsigned stackSize);
    DWORD Id() const;
    DWORD ExitCode();
    DWORD Wait(const Deadline& deadline) override;
    // Nobody waits any more. Leaves a thread that runs to itself, and one that has ended without a
    // wait as well: what it still does at its end may need the caller.
    void Close() override;

private:
    class JoinerRole;

    ~Thread() = default;
    static void* Run(void* thread);
    // Why the caller cannot wait for the thread; 0 if it can.
    DWORD Refusal() const;
    DWORD Join(const Deadline& deadline);
    void Drop();

    unsigned (*m_routine)(void*);
    void* m_argument;
    std::uint32_t m_generation;
    // The handle's, and the thread's own until it has begun.
    std::atomic<std::uint32_t> m_references{2};
    std::atomic<std::uint32_t> m_joining{kNobody};
    std::atomic<DWORD> m_id{0};
    pthread_t m_thread{};
    DWORD m_exitCode = STILL_ACTIVE; // before m_joining says joined
};

// The right to call pthread_join; given back also when the joining thread is cancelled.
class Thread::JoinerRole
{
public:
    explicit JoinerRole(std::atomic<std::uint32_t>& joining) : m_joining(joining) {}
    ~JoinerRole()
    {
        if (m_joining.exchange(m_leaves, std::memory_order_acq_rel) == kOneAndOthersSleep) {
            FutexWake(&m_joining, INT32_MAX);
        }
    }
    JoinerRole(const JoinerRole&) = delete;
    JoinerRole& operator=(const JoinerRole&) = delete;
    void HasJoined() { m_leaves = kJoined; }

private:
    std::atomic<std::uint32_t>& m_joining;
    std::uint32_t m_leaves = kNobody;
};

// No handler and no noexcept on the way: an exception that the routine lets out ends the process
// with the stack as it was thrown, and pthread_exit unwinds through here.
void* Thread::Run(void* thread)
{
    auto* const self = static_cast<Thread*>(thread);
    unsigned (*const routine)(void*) = self->m_routine;
    void* const argument = self->m_argument;
    t_threadId = IdOf(pthread_self());
    self->m_id.store(GetCurrentThreadId(), std::memory_order_release);
    self->Drop();
    return reinterpret_cast<void*>(std::uintptr_t{routine(argument)});
}

int Thread::Begin(unsigned stackSize)
{
    constexpr std::size_t kMegabyte = std::size_t{1} << 20;
    pthread_attr_t attributes;
    int error = pthread_attr_init(&attributes);
    if (error != 0) {
        delete this;
        return error;
    }
    if (stackSize != 0) {
        const std::size_t size = (std::size_t{stackSize} + kMegabyte - 1) & ~(kMegabyte - 1);
        error = pthread_attr_setstacksize(&attributes, size);
    }
    if (error == 0) {
        error = pthread_create(&m_thread, &attributes, &Run, this);
    }
    pthread_attr_destroy(&attributes);
    if (error != 0) {
        delete this;
    }
    return error;
}

DWORD Thread::Id() const
{
    const DWORD id = IdOf(m_thread);
    return id != 0 ? id : m_id.load(std::memory_order_acquire); // it has ended, so it has told
}

DWORD Thread::Refusal() const
{
    if (m_generation != g_generation.load(std::memory_order_relaxed)) {
        return ERROR_INVALID_HANDLE; // the thread stayed in the parent
    }
    return pthread_equal(m_thread, pthread_self()) != 0 ? ERROR_POSSIBLE_DEADLOCK : ERROR_SUCCESS;
}

DWORD Thread::ExitCode()
{
    const bool isOver = Refusal() == ERROR_SUCCESS && Wait(Deadline::After(0)) == WAIT_OBJECT_0;
    return isOver ? m_exitCode : STILL_ACTIVE;
}

DWORD Thread::Wait(const Deadline& deadline)
{
    if (const DWORD error = Refusal(); error != ERROR_SUCCESS) {
        SetLastError(error);
        return WAIT_FAILED;
    }
    for (;;) {
        std::uint32_t seen = kNobody;
        if (m_joining.compare_exchange_strong(seen, kOne, std::memory_order_acquire)) {
            return Join(deadline);
        }
        if (seen == kJoined) {
            return WAIT_OBJECT_0;
        }
        if (deadline.HasPassed()) {
            return WAIT_TIMEOUT;
        }
        if (seen == kOneAndOthersSleep ||
            m_joining.compare_exchange_strong(seen, kOneAndOthersSleep,
                                              std::memory_order_relaxed)) {
            FutexWaitUntil(m_joining, kOneAndOthersSleep, deadline);
        }
    }
}

// Returns when the thread is gone, and not when its routine has returned: the code under it may be
// unloaded after that.
DWORD Thread::Join(const Deadline& deadline)
{
    JoinerRole role(m_joining);
    void* value = nullptr;
    int error = 0;
    if (deadline.IsForever()) {
        error = pthread_join(m_thread, &value);
    } else if (deadline.IsNow()) {
        error = pthread_tryjoin_np(m_thread, &value);
    } else {
        const timespec until = deadline.Time();
        error = pthread_clockjoin_np(m_thread, &value, CLOCK_MONOTONIC, &until);
    }
    if (error == EBUSY || error == ETIMEDOUT) {
        return WAIT_TIMEOUT;
    }
    if (error != 0) {
        SetLastError(ErrorFromThreads(error));
        return WAIT_FAILED;
    }
    m_exitCode = static_cast<DWORD>(reinterpret_cast<std::uintptr_t>(value));
    role.HasJoined();
    return WAIT_OBJECT_0;
}

void Thread::Close()
{
    if (m_joining.load(std::memory_order_acquire) != kJoined &&
        m_generation == g_generation.load(std::memory_order_relaxed)) {
        pthread_detach(m_thread);
    }
    Drop();
}

void Thread::Drop()
{
    if (m_references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete this;
    }
}

// As many processors as the kernel knows on its largest machines: a short set is an error there.
struct Processors
{
    std::uint64_t words[128];

    DWORD Folded() const
    {
        std::uint64_t folded = 0;
        for (const std::uint64_t word : words) {
            folded |= word | word >> 32;
        }
        return static_cast<DWORD>(folded);
    }
};

constinit Processors g_processors{};

bool Read(pid_t thread, Processors& processors)
{
    processors = {};
    return sched_getaffinity(thread, sizeof processors,
                             reinterpret_cast<cpu_set_t*>(&processors)) == 0;
}

} // namespace

std::uintptr_t _beginthreadex(void* /*security*/, unsigned stackSize, unsigned (*routine)(void*),
                              void* argument, unsigned /*flags*/, unsigned* id)
{
    const KeepErrno keep;
    auto* const thread = new (std::nothrow) Thread(routine, argument);
    if (thread == nullptr) {
        SetLastError(ERROR_OUTOFMEMORY);
        return 0;
    }
    if (const int error = thread->Begin(stackSize); error != 0) {
        SetLastError(ErrorFromThreads(error));
        return 0;
    }
    *id = thread->Id();
    return reinterpret_cast<std::uintptr_t>(static_cast<HANDLE>(thread));
}

BOOL GetExitCodeThread(HANDLE thread, DWORD* exitCode)
{
    const KeepErrno keep;
    *exitCode = STILL_ACTIVE;
    if (thread == GetCurrentThread()) {
        return kTrue;
    }
    if (thread->Kind() != ObjectKind::Thread) {
        SetLastError(ERROR_INVALID_HANDLE);
        return kFalse;
    }
    *exitCode = static_cast<Thread*>(thread)->ExitCode();
    return kTrue;
}

DWORD GetCurrentThreadId()
{
    if (t_threadId == 0) {
        t_threadId = static_cast<DWORD>(syscall(SYS_gettid));
    }
    return t_threadId;
}

BOOL SwitchToThread()
{
    const KeepErrno keep;
    return sched_yield() == 0 ? kTrue : kFalse;
}

void Sleep(DWORD milliseconds)
{
    if (milliseconds == 0) {
        SwitchToThread();
        return;
    }
    const KeepErrno keep;
    while (milliseconds == INFINITE) {
        pause();
    }
    const timespec until = Deadline::After(milliseconds).Time();
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
    }
}

std::uintptr_t SetThreadAffinityMask(HANDLE thread, std::uintptr_t mask)
{
    const KeepErrno keep;
    if (thread != GetCurrentThread()) {
        SetLastError(ERROR_INVALID_HANDLE);
        return 0;
    }
    // The kernel would take foreign processors and leave them out.
    if (mask == 0 || (mask & ~std::uintptr_t{g_processors.Folded()}) != 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const std::uint64_t twice = std::uint64_t{mask} | std::uint64_t{mask} << 32;
    Processors wanted = g_processors;
    for (std::uint64_t& word : wanted.words) {
        word &= twice;
    }
    Processors before;
    if (!Read(0, before) ||
        sched_setaffinity(0, sizeof wanted, reinterpret_cast<cpu_set_t*>(&wanted)) != 0) {
        SetLastError(ErrorFromErrno(errno));
        return 0;
    }
    return before.Folded();
}

void TakeProcessors()
{
    const KeepErrno keep;
    Read(getpid(), g_processors);
}

void ForgetThreads()
{
    t_threadId = 0;
    g_generation.fetch_add(1, std::memory_order_relaxed);
}

} // namespace qv::platform
