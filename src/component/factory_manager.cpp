#include "component/factory_manager.h"

#include <chrono>
#include <new>
#include <thread>

#include "component/class_registration.h"
#include "component/foreign.h"
#include "component/holders.h"
#include "frame/boundary.h"

using namespace qv::core;

namespace
{

// Whether this thread took the map's mutex for a fork.
[[gnu::tls_model("initial-exec")]] constinit thread_local bool t_heldForFork = false;

// After this time a short hold of another thread counts as a long one.
constexpr std::chrono::seconds kLongHold{2};

// Asks foreign code for an interface. What it throws ends here: the exception's own code may lie in
// the library that is closed on the way out. Success without an interface counts as a failure,
// since nobody could use the result.
template <class Ask> void* InterfaceFrom(Ask&& ask)
{
    void* object = nullptr;
    ThrowIfFailed(Boundary([&] { return ask(&object); }));
    if (object == nullptr) {
        throw EQVCoreException(E_FAIL);
    }
    return object;
}

} // namespace

// While one lives, the holder of the map's mutex is inside foreign code that may take its time.
class CQVFactoryManager::Loading
{
public:
    explicit Loading(CQVFactoryManager& manager) : m_manager(manager) { ++m_manager.m_loading; }
    ~Loading() { --m_manager.m_loading; }
    Loading(const Loading&) = delete;
    Loading& operator=(const Loading&) = delete;

private:
    CQVFactoryManager& m_manager;
};

CQVFactoryManager::CQVFactoryManager()
{
    new (&m_map) FactoryMap;
}

CQVFactoryManager::~CQVFactoryManager()
{
    if (!m_lost) {
        // Cleared outside the member: a class object that comes back finds an empty map.
        FactoryMap dropped;
        dropped.Swap(m_map);
        dropped.Clear();
        m_map.~FactoryMap();
    }
}

void* CQVFactoryManager::GetClassObject(const GUID& clsid, const GUID& iid)
{
    RefuseIfLost();
    // Declared before the lock: after a failure they are given back without it, so that the unload
    // routine of a library may wait for another thread's look-up.
    HeldLibrary library;
    HeldInterface object;
    const LockGuard lock(m_mapMutex.Get());
    // The reference is for a call that flushes the cache.
    if (const FactoryMap::Record cached{m_map.Find(ClassKey(clsid))}) {
        IQVUnknown* const factory = cached->Factory();
        return InterfaceFrom(
            [&](void** out) { return TableOf(factory).QueryInterface(factory, &iid, out); });
    }
    return LoadClassObject(clsid, iid, library, object);
}

void* CQVFactoryManager::LoadClassObject(const GUID& clsid, const GUID& iid, HeldLibrary& library,
                                         HeldInterface& object)
{
    const Loading loading(*this);
    LibraryPath path;
    if (ReadLibraryPath(clsid, path) < 0) {
        throw EQVCoreException(REGDB_E_CLASSNOTREG);
    }
    library.Open(path.data());
    void* symbol = nullptr;
    ThrowIfFailed(QVLibGetSymbol(library.Get(), u"DllGetClassObject", &symbol));
    const auto entry = reinterpret_cast<QVDllGetClassObject>(symbol);
    object.Take(InterfaceFrom([&](void** out) { return entry(&clsid, &iid, out); }));
    const FactoryMap::Record record(new CQVFactoryData(object.Get()));
    m_map.Reserve();
    // Last, when nothing can fail any more: a record that ends closes its library, and that must
    // not happen before the interface is released.
    record->TakeLibrary(library.PassOn());
    // A record that is there already came from the load routine or the entry point just called.
    const FactoryMap::Record replaced = m_map.Store(ClassKey(clsid), record);
    return object.PassOn();
}

void CQVFactoryManager::Flush()
{
    RefuseIfLost();
    const LockGuard lock(m_mapMutex.Get());
    const Loading loading(*this);
    // Dropped outside the map: a class object that comes back finds an empty one.
    FactoryMap dropped;
    dropped.Swap(m_map);
    dropped.Clear();
}

void CQVFactoryManager::RefuseIfLost() const
{
    if (m_lost) {
        throw EQVCoreException(E_FAIL);
    }
}

bool CQVFactoryManager::TryHoldMap()
{
    const QVMutex mutex = m_mapMutex.Get();
    if (mutex == QV_MUTEX_NONE) {
        return false;
    }
    // A cached look-up or another fork is over soon; a load may wait for this very thread.
    if (QVMutexTryAcquire(mutex) >= 0) {
        return true;
    }
    const auto end = std::chrono::steady_clock::now() + kLongHold;
    while (m_loading.load() == 0 && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::microseconds(50)); // lets a holder run
        if (QVMutexTryAcquire(mutex) >= 0) {
            return true;
        }
    }
    return false;
}

void CQVFactoryManager::PrepareFork()
{
    t_heldForFork = TryHoldMap();
}

void CQVFactoryManager::GiveBackMap()
{
    if (t_heldForFork) {
        t_heldForFork = false;
        QVMutexRelease(m_mapMutex.Get());
    }
}

void CQVFactoryManager::ParentAfterFork()
{
    GiveBackMap();
}

void CQVFactoryManager::ChildAfterFork()
{
    m_lost = m_lost || !t_heldForFork;
    GiveBackMap();
}
