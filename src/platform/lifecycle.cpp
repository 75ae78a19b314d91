#include "platform/lifecycle.h"

#include <dlfcn.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>
#include <unwind.h>

#include <cstdlib>

#include "platform/calendar.h"
#include "platform/critical_section.h"
#include "platform/descriptor_record.h"
#include "platform/diagnostics.h"
#include "platform/file_locks.h"
#include "platform/held_process.h"
#include "platform/library_counts.h"
#include "platform/locale.h"
#include "platform/mapping.h"
#include "platform/named_object.h"
#include "platform/orphans.h"
#include "platform/quiet_write.h"
#include "platform/registry_store.h"
#include "platform/section_hold.h"
#include "platform/thread.h"

namespace qv::platform
{

namespace
{

// Held while the module starts or stops, and around a fork: what a fork makes stand still neither
// comes nor goes before it is let go.
constinit CRITICAL_SECTION g_changing{};

// Held around a fork: the C library runs the handlers of several threads at once.
constinit CRITICAL_SECTION g_forking{};

struct Callers
{
    bool exit = false;
    bool dlclose = false;
};

_Unwind_Reason_Code Look(_Unwind_Context* frame, void* callers)
{
    auto& seen = *static_cast<Callers*>(callers);
    const auto function = static_cast<std::uintptr_t>(_Unwind_GetRegionStart(frame));
    seen.exit = seen.exit || function == reinterpret_cast<std::uintptr_t>(&std::exit);
    seen.dlclose = seen.dlclose || function == reinterpret_cast<std::uintptr_t>(&dlclose);
    return _URC_NO_REASON;
}

// The loader runs a destructor in the same way for both ends, and an exit routine of our own could
// come too late: a module that is loaded before main is ended after it. So the callers tell. A
// wrong answer may only be "yes", which leaks; never "no", which would pull the ground from under
// running threads.
bool ProcessIsExiting()
{
    Callers seen;
    _Unwind_Backtrace(&Look, &seen);
    return seen.exit || !seen.dlclose;
}

bool OtherThreadsLive()
{
    // A joined thread may be counted for some milliseconds more.
    for (int attempt = 0; attempt < 20; ++attempt) {
        struct stat tasks = {};
        if (stat("/proc/self/task", &tasks) != 0) {
            return true;
        }
        // Itself, its parent and the one thread.
        if (tasks.st_nlink == 3) {
            return false;
        }
        usleep(1000);
    }
    return true;
}

// Whether this thread's fork is one that the module hears of.
[[gnu::tls_model("initial-exec")]] constinit thread_local bool t_forkIsTold = false;

void PrepareFork()
{
    EnterCriticalSection(&g_forking);
    // Never waits for an unload: the code that waits would be gone at its end.
    t_forkIsTold = TryEnterCriticalSection(&g_changing) != kFalse;
    if (t_forkIsTold) {
        ForkNotification(ForkStage::Prepare);
        HoldNamedObjects();
        CountFork();
        HoldFileLocks();
        HoldProcesses();
        HoldRecords();
        HoldViews();
        HoldLog();
        EnterCriticalSection(&g_zoneLock);
        EnterCriticalSection(&g_localeLock);
    }
}

void EndFork(ForkStage stage)
{
    if (stage == ForkStage::Child) {
        ForgetThreads();
    }
    if (t_forkIsTold) {
        LeaveCriticalSection(&g_localeLock);
        LeaveCriticalSection(&g_zoneLock);
        ReleaseLog(stage == ForkStage::Child);
        ReleaseViews();
        ReleaseRecords();
        ReleaseProcesses(stage == ForkStage::Child);
        ReleaseFileLocks();
        if (stage == ForkStage::Child) {
            ForgetOwnSlots();
        }
        ReleaseNamedObjects();
        ForkNotification(stage);
        t_forkIsTold = false;
        LeaveCriticalSection(&g_changing);
    }
    LeaveCriticalSection(&g_forking);
}

[[gnu::constructor]] void OnLoad()
{
    pthread_atfork(
        &PrepareFork, [] { EndFork(ForkStage::Parent); }, [] { EndFork(ForkStage::Child); });
    TakeProcessors();
    TakeFileLimit();
    const SectionHold changing(&g_changing);
    DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
}

[[gnu::destructor]] void OnUnload()
{
    Orphans::StopThread();
    if (!ProcessIsExiting()) {
        const SectionHold changing(&g_changing);
        DllMain(nullptr, DLL_PROCESS_DETACH, nullptr);
        EndRecords();
        EndNamedObjects();
        EndSections();
        Orphans::Forget();
        ForgetRecords();
        ForgetViews();
        CloseNamedObjects();
        CloseRegistryStores();
        ForgetLibraryCounts();
        return;
    }
    static char processEnds;
    const bool othersLive = OtherThreadsLive();
    DllMain(nullptr, DLL_PROCESS_DETACH, othersLive ? &processEnds : nullptr);
    EndRecords();
    EndNamedObjects();
    EndSections();
    if (!othersLive) {
        // Else the kernel ends the holds, and the next to come takes over the names.
        CloseNamedObjects();
    }
}

} // namespace

} // namespace qv::platform
