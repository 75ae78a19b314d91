// Ends, or forks, in the way that the first argument names. Compiled twice: linked with the
// library, and (QV_TEST_LIBRARY) loading it at run time.
#include <qvcore6/component.h>
#include <qvcore6/mutex.h>
#include <qvcore6/registry.h>
#include <qvcore6/result.h>
#include <qvcore6/semaphore.h>
#include <qvcore6/thread.h>

#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
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

std::atomic<int> g_busy{0};

QVRESULT LookUpClass()
{
    const GUID clsid{};
    void* object;
    return QV_CALL(QVComGetClassObject)(&clsid, &clsid, &object);
}

bool UseMutex()
{
    QVMutex mutex;
    return QV_CALL(QVMutexCreate)("used", 0, &mutex) == S_OK &&
           QV_CALL(QVMutexAcquire)(mutex) == S_OK && QV_CALL(QVMutexRelease)(mutex) == S_OK &&
           QV_CALL(QVMutexDestroy)(mutex) == 0;
}

// Never leaves the library for long.
[[noreturn]] void StayInside()
{
    ++g_busy;
    for (;;) {
        UseMutex();
        LookUpClass();
    }
}

void StartBusyThreads()
{
    for (int count = 0; count < 3; ++count) {
        std::thread(StayInside).detach();
    }
    while (g_busy != 3) {
        std::this_thread::yield();
    }
}

QVThread Create(QVThreadEntry entry, void* argument)
{
    QVThread thread;
    uint32_t id;
    return QV_CALL(QVThreadCreate)(entry, argument, 0, 0, &thread, &id) == S_OK ? thread
                                                                                : QV_THREAD_NONE;
}

// Threads of the library's that run, wait for ever, sleep, join one another, and come and go.
bool StartCreatedThreads()
{
    static QVSemaphore never;
    static QVThread waiting;
    QV_CALL(QVSemaphoreCreate)(0, "never", 0, &never);
    waiting = Create([](void*) { return static_cast<uint32_t>(QV_CALL(QVSemaphoreWait)(never)); },
                     nullptr);
    const QVThreadEntry entries[] = {
        [](void*) -> uint32_t { StayInside(); },
        [](void*) { return static_cast<uint32_t>(QV_CALL(QVThreadJoin)(waiting, nullptr)); },
        [](void*) -> uint32_t {
            QV_CALL(QVSleep)(0xFFFFFFFF);
            std::abort();
        },
        [](void*) -> uint32_t {
            for (++g_busy;;) {
                QV_CALL(QVThreadJoin)(Create([](void*) { return 1u; }, nullptr), nullptr);
                QV_CALL(QVThreadDetach)(Create([](void*) { return 1u; }, nullptr));
            }
        },
    };
    bool isGood = waiting != QV_THREAD_NONE;
    for (const QVThreadEntry entry : entries) {
        isGood = isGood && Create(entry, nullptr) != QV_THREAD_NONE;
    }
    while (isGood && g_busy != 2) {
        std::this_thread::yield();
    }
    return isGood;
}

bool UseLocksAndStore()
{
    const char16_t text[] = u"value";
    char16_t read[16];
    uint32_t type = 9;
    uint32_t size = sizeof read;
    return UseMutex() &&
           QV_CALL(QVRegistrySetValue)(QV_HKEY_USER, u"Ending", u"name", QV_REGTYPE_STRING, text,
                                       sizeof text) >= 0 &&
           QV_CALL(QVRegistryGetValue)(QV_HKEY_USER, u"Ending", u"name", &type, read, &size) >= 0 &&
           std::memcmp(read, text, sizeof text) == 0;
}

bool UseTheLibrary()
{
    return UseLocksAndStore() && LookUpClass() == REGDB_E_CLASSNOTREG;
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
    StartBusyThreads();
    for (int round = 0; round < 30; ++round) {
        const auto body = [] {
            LookUpClass(); // it may refuse: the parent may have been in the middle of one
            return UseLocksAndStore();
        };
        if (!Succeeds(body)) {
            return false;
        }
    }
    return true;
}

// The child's only thread holds what it held. What another thread held stays held: a thread that is
// made where that one was is not taken for it.
bool HeldAcrossFork()
{
    QVMutex mutex;
    QVMutex lost;
    QV_CALL(QVMutexCreate)("held", QV_MUTEX_CHECKED, &mutex);
    QV_CALL(QVMutexCreate)("lost", QV_MUTEX_CHECKED, &lost);
    QV_CALL(QVMutexAcquire)(mutex);
    std::atomic<bool> holds{false};
    std::thread([&] {
        QV_CALL(QVMutexAcquire)(lost);
        holds = true;
        pause();
    }).detach();
    while (!holds) {
        std::this_thread::yield();
    }
    const bool isGood = Succeeds([=] {
        const bool nested = QV_CALL(QVMutexAssertOwnership)(mutex, 1) == 1 &&
                            QV_CALL(QVMutexAcquire)(mutex) == S_OK;
        QV_CALL(QVMutexRelease)(mutex);
        QV_CALL(QVMutexRelease)(mutex);
        bool taken = false;
        std::thread([&] {
            taken = QV_CALL(QVMutexTryAcquire)(mutex) == S_OK &&
                    QV_CALL(QVMutexTryAcquire)(lost) == E_FAIL;
        }).join();
        return nested && taken;
    });
    QV_CALL(QVMutexRelease)(mutex);
    QV_CALL(QVMutexDestroy)(mutex);
    return isGood;
}

} // namespace

int main(int argc, char** argv)
{
    const std::string how = argc > 1 ? argv[1] : "";
    if (how == "return") {
        return UseTheLibrary() ? 42 : 1;
    }
    if (how == "return-busy") {
        StartBusyThreads();
        return 42;
    }
    if (how == "exit-from-thread") {
        StartBusyThreads();
        std::thread([] { std::exit(42); }).join();
    }
    if (how == "quick-exit-busy") {
        StartBusyThreads();
        std::quick_exit(42);
    }
    if (how == "return-created") {
        return StartCreatedThreads() ? 42 : 1;
    }
    if (how == "exit-from-created") {
        const bool isGood = StartCreatedThreads();
        QV_CALL(QVThreadJoin)
        (Create([](void*) -> uint32_t { std::exit(42); }, nullptr), nullptr);
        return isGood ? 2 : 1;
    }
    if (how == "fork") {
        return UseTheLibrary() && Succeeds(UseTheLibrary) && UseTheLibrary() ? 42 : 1;
    }
    if (how == "fork-busy") {
        return ForkWhileBusy() ? 42 : 1;
    }
    if (how == "fork-held") {
        return HeldAcrossFork() ? 42 : 1;
    }
#ifdef QV_TEST_LIBRARY
    if (how == "unload-then-return") {
        const bool used = UseTheLibrary();
        dlclose(g_library);
        return used && dlopen(QV_TEST_LIBRARY, RTLD_NOW | RTLD_NOLOAD) == nullptr ? 42 : 1;
    }
#endif
    std::fprintf(stderr, "unknown way to end: %s\n", how.c_str());
    return 99;
}
