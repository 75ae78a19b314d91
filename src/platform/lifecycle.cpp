#include "platform/lifecycle.h"

#include <dlfcn.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <new>

#include "platform/loader.h"
#include "platform/registry_store.h"

extern "C"
{
    int __cxa_atexit(void (*function)(void*), void* argument, void* module);
    void __cxa_finalize(void* module);
}

namespace qv::platform
{

namespace
{

// Posted by exit() before this module's destructor runs, unless the module came with the program.
constinit sem_t* g_exitBegun = nullptr;
constinit bool g_cameWithProgram = false;

// An entry of no module is run by exit() alone, not by dlclose. Its function and its argument both
// outlive the module: sem_post belongs to the C library, and the semaphore lies on the heap. The
// semaphore also serves as the module, which is none: so the entry can be taken back by it, and the
// thread sanitizer drops the argument of an entry whose module is null.
void WatchForExit()
{
    g_exitBegun = static_cast<sem_t*>(std::malloc(sizeof(sem_t)));
    if (g_exitBegun == nullptr) {
        return;
    }
    sem_init(g_exitBegun, 0, 0);
    using Callback = void (*)(void*);
    const auto post = reinterpret_cast<Callback>(reinterpret_cast<void (*)()>(&sem_post));
    if (__cxa_atexit(post, g_exitBegun, g_exitBegun) != 0) {
        std::free(g_exitBegun);
        g_exitBegun = nullptr;
    }
}

void StopWatching()
{
    __cxa_finalize(g_exitBegun);
    std::free(g_exitBegun);
    g_exitBegun = nullptr;
}

void* MapOf(const void* address)
{
    Dl_info facts = {};
    void* map = nullptr;
    return dladdr1(address, &facts, &map, RTLD_DL_LINKMAP) != 0 ? map : nullptr;
}

// Modules of the program's own start-up set alone are in the global scope at this moment. They are
// never unloaded before exit, whose entries above would run only after their destructors. A program
// may hold an address of its own for our function; another library there is another copy of us.
bool CameWithProgram()
{
    void* const program = dlopen(nullptr, RTLD_LAZY | RTLD_NOLOAD);
    if (program == nullptr) {
        return false;
    }
    void* const found = dlsym(program, kModuleExport);
    void* const map = found != nullptr ? MapOf(found) : nullptr;
    dlclose(program);
    return map != nullptr && (map == MapOf(&g_exitBegun) || map == program);
}

// A wrong answer may only be "yes", which leaks; never "no", which would pull the ground from
// under running threads.
bool ProcessIsExiting()
{
    int value = 0;
    return g_cameWithProgram || g_exitBegun == nullptr ||
           (sem_getvalue(g_exitBegun, &value) == 0 && value > 0);
}

bool OtherThreadsLive()
{
    // A joined thread may be counted for some milliseconds more.
    for (int attempt = 0; attempt < 20; ++attempt) {
        struct stat tasks = {};
        if (stat("/proc/self/task", &tasks) != 0) {
            return true;
        }
        if (tasks.st_nlink <= 3) {
            return false;
        }
        usleep(1000);
    }
    return true;
}

[[gnu::constructor]] void OnLoad()
{
    WatchForExit();
    g_cameWithProgram = CameWithProgram();
    pthread_atfork([] { ForkNotification(ForkStage::Prepare); },
                   [] { ForkNotification(ForkStage::Parent); },
                   [] { ForkNotification(ForkStage::Child); });
    DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
}

[[gnu::destructor]] void OnUnload()
{
    if (!ProcessIsExiting()) {
        DllMain(nullptr, DLL_PROCESS_DETACH, nullptr);
        CloseRegistryStores();
        ForgetLibraries();
        StopWatching();
        return;
    }
    static char processEnds;
    DllMain(nullptr, DLL_PROCESS_DETACH, OtherThreadsLive() ? &processEnds : nullptr);
}

} // namespace

} // namespace qv::platform
