#include "frame/library.h"

#include <qvcore6/module.h>

#include <clocale>
#include <memory>
#include <utility>

#include "component/module_manager.h"
#include "config/migration.h"
#include "frame/boundary.h"
#include "frame/client_data.h"
#include "frame/debug_lock.h"
#include "frame/facts.h"
#include "frame/global_data.h"
#include "frame/platform_facts.h"
#include "host/computer_names.h"
#include "host/my_addresses.h"
#include "locks/lock_stat_manager.h"
#include "locks/mutex.h"
#include "platform/com.h"
#include "platform/lifecycle.h"
#include "text/encoding_pool.h"

constinit CQVGlobalData g_globalData{};

namespace qv::core
{

namespace
{

// Starts without a stop. The loader runs its notifications one at a time.
constinit std::int32_t s_startCount = 0;

void MakeDebugMutex()
{
    auto cell = std::make_unique<QVMutex>(QV_MUTEX_NONE);
    ThrowIfFailed(QVMutexCreate("CQVGlobalData::m_debugMutex", QV_MUTEX_UNTRACKED, cell.get()));
    g_globalData.m_debugMutex = cell.release();
}

// Each object finds those before it in place. A throw leaves what was made before it.
void MakeGlobalData()
{
    g_globalData.m_mutexProvider = new CQVMutexProvider;
    g_globalData.m_lockStatManager = new CQVLockStatManager;
    MakeDebugMutex();
    g_globalData.m_moduleManager = new CQVModuleManager;
    g_globalData.m_clientData = new CQVClientData;
}

template <class T> void End(T*& object)
{
    delete object;
    object = nullptr;
}

void EndDebugMutex()
{
    if (g_globalData.m_debugMutex != nullptr) {
        QVMutexDestroy(*g_globalData.m_debugMutex);
        End(g_globalData.m_debugMutex);
    }
}

// The client data go before the module manager: dropping cached factories asks the module gate. The
// lock statistics go last, as a mutex that is destroyed may report to them.
void EndGlobalData()
{
    EmptyEncodingPool();
    g_computerNames.End();
    g_myAddresses.End();
    End(g_globalData.m_clientData);
    End(g_globalData.m_moduleManager);
    EndDebugMutex();
    End(g_globalData.m_mutexProvider);
    End(g_globalData.m_lockStatManager);
}

void ReleaseTaskAllocator()
{
    if (s_malloc != nullptr && s_malloc->Release() == 0) {
        s_malloc = nullptr;
    }
}

// The tables that a fork makes stand still, as far as the start came.
class ForkedTables
{
public:
    template <class Act> void Forwards(Act act) const
    {
        act(g_computerNames);
        act(g_myAddresses);
        Do(m_factories, act);
        Do(m_modules, act);
        Do(m_threads, act);
        Do(m_processes, act);
        Do(m_statistics, act);
    }
    template <class Act> void Backwards(Act act) const
    {
        Do(m_statistics, act);
        Do(m_processes, act);
        Do(m_threads, act);
        Do(m_modules, act);
        Do(m_factories, act);
        act(g_myAddresses);
        act(g_computerNames);
    }

private:
    template <class Table, class Act> static void Do(Table* table, Act& act)
    {
        if (table != nullptr) {
            act(*table);
        }
    }

    CQVClientData* m_client = g_globalData.m_clientData;
    CQVFactoryManager* m_factories = m_client != nullptr ? &m_client->m_factoryManager : nullptr;
    CQVModuleManager* m_modules = g_globalData.m_moduleManager;
    CQVThreadManager* m_threads = m_client != nullptr ? &m_client->m_threadManager : nullptr;
    CQVProcessManager* m_processes = m_client != nullptr ? &m_client->m_processManager : nullptr;
    CQVLockStatManager* m_statistics = g_globalData.m_lockStatManager;
};

} // namespace

QVRESULT QVLibraryStart()
{
    if (++s_startCount != 1) {
        return S_OK;
    }
    std::setlocale(LC_ALL, "");
    s_selfModule = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(&platform::DllMain));
    TakePlatformFacts();
    const QVRESULT made = Boundary(MakeGlobalData);
    if (made < 0) {
        return made;
    }
    return platform::CoGetMalloc(1, &s_malloc);
}

QVRESULT QVLibraryStop()
{
    if (s_startCount < 1) {
        return E_FAIL;
    }
    if (--s_startCount != 0) {
        return S_OK;
    }
    ReleaseTaskAllocator();
    Boundary(EndGlobalData);
    return S_OK;
}

} // namespace qv::core

namespace qv::platform
{

BOOL DllMain(void* /*instance*/, DWORD reason, void* reserved)
{
    if (reason == DLL_PROCESS_ATTACH) {
        core::QVLibraryStart();
        QVModuleSetInitialized(core::s_selfModule, 1);
    } else if (reason == DLL_PROCESS_DETACH) {
        // Marked first, so that the factory cache frees no library inside this notification.
        QVModuleSetInitialized(core::s_selfModule, 0);
        if (reserved == nullptr) {
            core::QVLibraryStop();
        }
    }
    return kTrue;
}

// The child must find every table whole and every lock free, so the tables stand still meanwhile:
// in the order of their locks, and back.
void ForkNotification(ForkStage stage)
{
    const core::ForkedTables tables;
    switch (stage) {
    case ForkStage::Prepare:
        tables.Forwards([](auto& table) { table.PrepareFork(); });
        break;
    case ForkStage::Parent:
        tables.Backwards([](auto& table) { table.ParentAfterFork(); });
        break;
    case ForkStage::Child:
        tables.Backwards([](auto& table) { table.ChildAfterFork(); });
        core::FreeDebugLockInChild();
        core::ForgetMigration();
        break;
    }
}

} // namespace qv::platform
