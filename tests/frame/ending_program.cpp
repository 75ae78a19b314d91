// Ends, or forks, in the way that the first argument names. Compiled twice: linked with the
// library, and (QV_TEST_LIBRARY) loading it at run time.
#include <qvcore6/component.h>
#include <qvcore6/lockstats.h>
#include <qvcore6/mutex.h>
#include <qvcore6/registry.h>
#include <qvcore6/result.h>
#include <qvcore6/thread.h>

#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <semaphore>
#include <string>
#include <thread>

namespace
{

#ifdef QV_TEST_LIBRARY
void* g_library = dlopen(QV_TEST_LIBRARY, RTLD_NOW | RTLD_LOCAL);
#define QV_CALL(name) (reinterpret_cast<decltype(&name)>(dlsym(g_library, #name)))
#else
#define QV_CALL(name) (&name)
#endif

void LookUpClass()
{
    const GUID clsid{};
    void* object;
    QV_CALL(QVComGetClassObject)(&clsid, &clsid, &object);
}

bool UseMutex(uint32_t flags)
{
    QVMutex mutex;
    return QV_CALL(QVMutexCreate)("used", flags, &mutex) == S_OK &&
           QV_CALL(QVMutexAcquire)(mutex) == S_OK && QV_CALL(QVMutexRelease)(mutex) == S_OK &&
           QV_CALL(QVMutexDestroy)(mutex) == S_OK;
}

QVThread Create(QVThreadEntry entry)
{
    QVThread thread;
    uint32_t id;
    QV_CALL(QVThreadCreate)(entry, nullptr, 0, 0, &thread, &id);
    return thread;
}

bool UseThread()
{
    uint32_t exitCode = 0;
    return QV_CALL(QVThreadJoin)(Create([](void*) { return 5u; }), &exitCode) == S_OK &&
           exitCode == 5;
}

// Threads of the library's that never leave it for long, and one that waits for one of them.
bool StartThreads()
{
    static std::atomic<int> busy{0};
    static QVThread last;
    for (int count = 0; count < 3; ++count) {
        last = Create([](void*) -> uint32_t {
            for (++busy;; QV_CALL(QVResetLockStats)()) {
                UseMutex(0);
                UseMutex(QV_MUTEX_STATS);
                LookUpClass();
                UseThread();
            }
        });
    }
    while (busy != 3) {
        std::this_thread::yield();
    }
    return Create([](void*) {
               return static_cast<uint32_t>(QV_CALL(QVThreadJoin)(last, nullptr));
           }) != QV_THREAD_NONE;
}

bool UseTheLibrary()
{
    LookUpClass(); // may refuse in a child whose parent was in the middle of one
    return UseMutex(0) && UseMutex(QV_MUTEX_STATS) && UseThread() &&
           QV_CALL(QVRegistrySetValue)(QV_HKEY_USER, u"Ending", u"name", QV_REGTYPE_STRING, u"1",
                                       4) >= 0;
}

// Whether a child ends, and with success. One that hangs is ended.
template <class Body> bool Succeeds(Body body)
{
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        std::exit(body() ? 0 : 1);
    }
    int status = -1;
    return waitpid(child, &status, 0) == child && status == 0;
}

// Children of a process whose other threads are inside the library use it and end in order.
bool ForkWhileBusy()
{
    bool isGood = StartThreads();
    for (int round = 0; isGood && round < 10; ++round) {
        isGood = Succeeds(UseTheLibrary);
    }
    return isGood;
}

// The child's only thread holds what it held. What another thread held stays held: a thread that is
// made where that one was is not taken for it.
bool HeldAcrossFork()
{
    QVMutex own;
    QVMutex lost;
    QV_CALL(QVMutexCreate)("own", QV_MUTEX_CHECKED, &own);
    QV_CALL(QVMutexCreate)("lost", QV_MUTEX_CHECKED, &lost);
    QV_CALL(QVMutexAcquire)(own);
    std::binary_semaphore isLost{0};
    std::thread([&] {
        QV_CALL(QVMutexAcquire)(lost);
        isLost.release();
        pause();
    }).detach();
    isLost.acquire();
    return Succeeds([=] {
        const bool nested =
            QV_CALL(QVMutexAssertOwnership)(own, 1) == 1 && QV_CALL(QVMutexAcquire)(own) == S_OK;
        QV_CALL(QVMutexRelease)(own);
        QV_CALL(QVMutexRelease)(own);
        bool taken = false;
        std::thread([&] {
            taken = QV_CALL(QVMutexTryAcquire)(own) == S_OK &&
                    QV_CALL(QVMutexTryAcquire)(lost) == E_FAIL;
        }).join();
        return nested && taken;
    });
}

} // namespace

int main(int argc, char** argv)
{
    const std::string how = argc > 1 ? argv[1] : "";
    bool isGood = false;
    if (how == "return") {
        isGood = StartThreads();
    } else if (how == "exit-from-thread" && StartThreads()) {
        Create([](void*) -> uint32_t { std::exit(42); });
        pause();
    } else if (how == "fork") {
        isGood = UseTheLibrary() && Succeeds(UseTheLibrary) && UseTheLibrary();
    } else if (how == "fork-busy") {
        isGood = ForkWhileBusy();
    } else if (how == "fork-held") {
        isGood = HeldAcrossFork();
    }
#ifdef QV_TEST_LIBRARY
    else if (how == "unload") {
        isGood = UseTheLibrary() && dlclose(g_library) == 0 &&
                 dlopen(QV_TEST_LIBRARY, RTLD_NOW | RTLD_NOLOAD) == nullptr;
    }
#endif
    return isGood ? 42 : 1;
}
