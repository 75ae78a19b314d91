// Ends, or forks, in the way that the first argument names. Compiled twice: linked with the
// library, and (QV_TEST_LIBRARY) loading it at run time.
#include <qvcore6/component.h>
#include <qvcore6/mutex.h>
#include <qvcore6/registry.h>
#include <qvcore6/result.h>

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

// Never leaves the library for long.
void StayInside()
{
    ++g_busy;
    for (;;) {
        QVMutex mutex;
        QV_CALL(QVMutexCreate)("inside", 0, &mutex);
        QV_CALL(QVMutexAcquire)(mutex);
        QV_CALL(QVMutexRelease)(mutex);
        QV_CALL(QVMutexDestroy)(mutex);
        const GUID clsid{};
        void* object;
        QV_CALL(QVComGetClassObject)(&clsid, &clsid, &object);
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

int UseTheLibrary()
{
    QVMutex mutex;
    if (QV_CALL(QVMutexCreate)("used", 0, &mutex) < 0) {
        return 1;
    }
    QV_CALL(QVMutexAcquire)(mutex);
    QV_CALL(QVMutexRelease)(mutex);
    QV_CALL(QVMutexDestroy)(mutex);
    const char16_t text[] = u"value";
    if (QV_CALL(QVRegistrySetValue)(QV_HKEY_USER, u"Ending", u"name", QV_REGTYPE_STRING, text,
                                    sizeof text) < 0) {
        return 2;
    }
    char16_t read[16];
    uint32_t type = 9;
    uint32_t size = sizeof read;
    if (QV_CALL(QVRegistryGetValue)(QV_HKEY_USER, u"Ending", u"name", &type, read, &size) < 0 ||
        std::memcmp(read, text, sizeof text) != 0) {
        return 3;
    }
    const GUID clsid{};
    void* object;
    if (QV_CALL(QVComGetClassObject)(&clsid, &clsid, &object) != REGDB_E_CLASSNOTREG) {
        return 4;
    }
    return 0;
}

int WaitFor(pid_t child)
{
    int status = 0;
    if (waitpid(child, &status, 0) != child) {
        return 98;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 97;
}

// Children of a process whose other threads are inside the library use it and end in order.
int ForkWhileBusy()
{
    StartBusyThreads();
    for (int round = 0; round < 30; ++round) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(20); // a child that hangs is a failure, not a long test
            const int used = UseTheLibrary();
            // The cache may refuse in a child whose parent was in the middle of a class's loading.
            std::exit(used == 4 ? 0 : used);
        }
        const int ended = WaitFor(child);
        if (ended != 0) {
            return ended;
        }
    }
    return 0;
}

// The child's only thread holds what it held. What another thread held stays held: a thread that is
// made where that one was is not taken for it.
int HeldAcrossFork()
{
    QVMutex mutex;
    QVMutex lost;
    QV_CALL(QVMutexCreate)("held", 0, &mutex);
    QV_CALL(QVMutexCreate)("lost", 0, &lost);
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
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        const bool nested = QV_CALL(QVMutexAcquire)(mutex) == S_OK;
        QV_CALL(QVMutexRelease)(mutex);
        QV_CALL(QVMutexRelease)(mutex);
        bool taken = false;
        std::thread([&] {
            taken = QV_CALL(QVMutexTryAcquire)(mutex) == S_OK &&
                    QV_CALL(QVMutexTryAcquire)(lost) == E_FAIL;
        }).join();
        std::exit(nested && taken ? 0 : 1);
    }
    QV_CALL(QVMutexRelease)(mutex);
    QV_CALL(QVMutexDestroy)(mutex);
    return WaitFor(child);
}

} // namespace

int main(int argc, char** argv)
{
    const std::string how = argc > 1 ? argv[1] : "";
    if (how == "return") {
        return UseTheLibrary() == 0 ? 42 : 1;
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
    if (how == "fork") {
        const int before = UseTheLibrary();
        const pid_t child = fork();
        if (child == 0) {
            std::exit(UseTheLibrary() == 0 ? 7 : 1);
        }
        return before == 0 && WaitFor(child) == 7 && UseTheLibrary() == 0 ? 42 : 1;
    }
    if (how == "fork-busy") {
        return ForkWhileBusy() == 0 ? 42 : 1;
    }
    if (how == "fork-held") {
        return HeldAcrossFork() == 0 ? 42 : 1;
    }
#ifdef QV_TEST_LIBRARY
    if (how == "unload-then-return") {
        const int used = UseTheLibrary();
        dlclose(g_library);
        const bool gone = dlopen(QV_TEST_LIBRARY, RTLD_NOW | RTLD_NOLOAD) == nullptr;
        return used == 0 && gone ? 42 : 1;
    }
#endif
    std::fprintf(stderr, "unknown way to end: %s\n", how.c_str());
    return 99;
}
