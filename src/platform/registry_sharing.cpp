#include "platform/registry_sharing.h"

#include <pthread.h>
#include <sys/mman.h>

#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "platform/error.h"
#include "platform/registry_environment.h"
#include "platform/registry_lmdb.h"
#include "platform/registry_store.h"

namespace qv::platform
{

namespace
{

// Lies in a page of its own that reads as zeros in a forked child, so that the child finds no store
// open and the lock free, whatever other threads of the parent were doing.
struct Shared
{
    pthread_mutex_t opening; // zeros are a free lock
    std::atomic<Store*> stores[kStoreParts];
};

constinit std::atomic<Shared*> g_shared{nullptr};
// The newest store of each part, kept by a child to know its folder.
constinit std::atomic<Store*> g_newest[kStoreParts] = {nullptr, nullptr};

// For kernels that cannot clear a page in a child. Runs before the child's other threads exist.
void ClearInChild()
{
    if (Shared* const shared = g_shared.load()) {
        std::memset(static_cast<void*>(shared), 0, sizeof *shared);
    }
}

Shared* MapShared()
{
    void* const memory =
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        return nullptr;
    }
    if (madvise(memory, sizeof(Shared), MADV_WIPEONFORK) != 0 &&
        pthread_atfork(nullptr, nullptr, &ClearInChild) != 0) {
        munmap(memory, sizeof(Shared));
        return nullptr;
    }
    return new (memory) Shared{};
}

Shared* GetShared()
{
    Shared* shared = g_shared.load(std::memory_order_acquire);
    if (shared != nullptr) {
        return shared;
    }
    Shared* const made = MapShared();
    if (made == nullptr || g_shared.compare_exchange_strong(shared, made)) {
        return made;
    }
    munmap(made, sizeof(Shared));
    return shared;
}

DWORD MakeStore(StorePart part, Store* inherited, Store** made)
{
    std::string folder;
    if (inherited != nullptr) {
        folder = inherited->folder;
    } else if (const DWORD error = FindStoreFolder(part, &folder)) {
        return error;
    }
    OpenedEnvironment opened;
    auto store = std::make_unique<Store>();
    store->folder = folder;
    if (const DWORD error = OpenEnvironment(part, folder, &opened)) {
        return error;
    }
    store->environment = opened.environment;
    store->database = opened.database;
    store->readOnly = opened.readOnly;
    mdb_env_get_fd(opened.environment, &store->turns.file);
    store->inherited = inherited;
    *made = store.release();
    return ERROR_SUCCESS;
}

class Opening
{
public:
    explicit Opening(pthread_mutex_t* mutex) : m_mutex(mutex) { pthread_mutex_lock(m_mutex); }
    ~Opening() { pthread_mutex_unlock(m_mutex); }
    Opening(const Opening&) = delete;
    Opening& operator=(const Opening&) = delete;

private:
    pthread_mutex_t* m_mutex;
};

// A failure is not remembered: the next call tries again.
DWORD OpenStore(Shared* shared, StorePart part, Store** found)
{
    const NoCancellation noCancellation;
    const Opening opening(&shared->opening);
    const auto index = static_cast<unsigned>(part);
    *found = shared->stores[index].load(std::memory_order_acquire);
    if (*found != nullptr) {
        return ERROR_SUCCESS;
    }
    try {
        if (const DWORD error = MakeStore(part, g_newest[index].load(), found)) {
            return error;
        }
    } catch (const std::bad_alloc&) {
        return ERROR_OUTOFMEMORY;
    }
    g_newest[index].store(*found);
    shared->stores[index].store(*found, std::memory_order_release);
    return ERROR_SUCCESS;
}

void CloseStore(Store* store)
{
    for (Reader& reader : store->readers) {
        if (reader.cursor != nullptr) {
            mdb_cursor_close(reader.cursor);
        }
        if (reader.transaction != nullptr) {
            mdb_txn_abort(reader.transaction);
        }
        PathCache::Free(reader.cache);
    }
    mdb_env_close(store->environment);
    delete store;
}

} // namespace

std::size_t Store::LastCommit() const
{
    MDB_envinfo info = {};
    return mdb_env_info(environment, &info) == 0 ? info.me_last_txnid : 0;
}

DWORD FindStore(StorePart part, Store** store)
{
    Shared* const shared = GetShared();
    if (shared == nullptr) {
        return ERROR_OUTOFMEMORY;
    }
    *store = shared->stores[static_cast<unsigned>(part)].load(std::memory_order_acquire);
    return *store != nullptr ? ERROR_SUCCESS : OpenStore(shared, part, store);
}

// Environments of a parent process stay: closing them here would tell the parent's readers gone.
void CloseRegistryStores()
{
    const KeepErrno keep;
    Shared* const shared = GetShared();
    if (shared == nullptr) {
        return;
    }
    for (unsigned part = 0; part < kStoreParts; ++part) {
        if (Store* const store = shared->stores[part].exchange(nullptr)) {
            CloseStore(store);
        }
        g_newest[part].store(nullptr);
    }
    g_shared.store(nullptr);
    munmap(shared, sizeof(Shared));
}

} // namespace qv::platform
