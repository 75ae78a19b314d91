#include "platform/registry_handles.h"

#include <cstring>
#include <new>

#include "platform/error.h"
#include "platform/registry_enumeration.h"
#include "platform/registry_schema.h"

namespace qv::platform
{

namespace
{

constexpr std::size_t kPoolSize = 32;

// Most keys are open for the length of one call: these spare it the heap.
constinit RegistryKey g_pool[kPoolSize] = {};

[[gnu::tls_model("initial-exec")]] constinit thread_local std::size_t t_lastKey = 0;

bool Take(RegistryKey& key)
{
    return key.taken.load(std::memory_order_relaxed) == 0 &&
           key.taken.exchange(1, std::memory_order_acquire) == 0;
}

RegistryKey* TakeKey()
{
    if (Take(g_pool[t_lastKey])) {
        return &g_pool[t_lastKey];
    }
    for (std::size_t i = 0; i < kPoolSize; ++i) {
        if (Take(g_pool[i])) {
            t_lastKey = i;
            return &g_pool[i];
        }
    }
    return new (std::nothrow) RegistryKey;
}

void GiveBack(RegistryKey* key)
{
    FreeNamesAhead(key->ahead);
    key->ahead = nullptr;
    key->mark = 0;
    if (key >= g_pool && key < g_pool + kPoolSize) {
        key->taken.store(0, std::memory_order_release);
    } else {
        delete key;
    }
}

struct PredefinedRow
{
    DWORD key;
    StorePart part;
    Node node64;
    Node node32;
};

constexpr PredefinedRow kPredefined[] = {
    {HKEY_CLASSES_ROOT, StorePart::kMachine, kClassesRoot64, kClassesRoot32},
    {HKEY_CURRENT_USER, StorePart::kUser, kCurrentUser, kCurrentUser},
    {HKEY_LOCAL_MACHINE, StorePart::kMachine, kLocalMachine64, kLocalMachine32},
};

// Null for what is no open key. The address is looked at before what it points to.
RegistryKey* OpenKey(HKEY key)
{
    const auto address = reinterpret_cast<std::uintptr_t>(key);
    if (address == 0 || address % alignof(RegistryKey) != 0 || key->mark != RegistryKey::kOpen) {
        return nullptr;
    }
    return key;
}

const PredefinedRow* FindPredefined(HKEY key)
{
    for (const PredefinedRow& row : kPredefined) {
        if (key == PredefinedKey(row.key)) {
            return &row;
        }
    }
    return nullptr;
}

} // namespace

void EnumPosition::Set(RecordKind of, DWORD at, std::size_t number, const MDB_val& record)
{
    commit = record.mv_size <= sizeof key ? number : 0;
    kind = of;
    index = at;
    keySize = record.mv_size;
    if (commit != 0) {
        std::memcpy(key, record.mv_data, keySize);
    }
}

DWORD FindTarget(HKEY key, DWORD view, KeyTarget* target)
{
    constexpr DWORD kViews = KEY_WOW64_32KEY | KEY_WOW64_64KEY;
    if ((view & kViews) == kViews) {
        return ERROR_INVALID_PARAMETER;
    }
    if (const PredefinedRow* const row = FindPredefined(key)) {
        const bool is32 = (view & KEY_WOW64_32KEY) != 0;
        *target = {row->part, is32 ? row->node32 : row->node64, KEY_ALL_ACCESS, nullptr};
        return ERROR_SUCCESS;
    }
    RegistryKey* const opened = OpenKey(key);
    if (opened == nullptr) {
        return ERROR_INVALID_HANDLE;
    }
    *target = {opened->part, opened->node, opened->access, opened};
    return ERROR_SUCCESS;
}

DWORD MakeHandle(StorePart part, Node node, DWORD access, HKEY* key)
{
    RegistryKey* const made = TakeKey();
    if (made == nullptr) {
        return ERROR_OUTOFMEMORY;
    }
    made->part = part;
    made->node = node;
    made->access = access;
    made->position.commit = 0;
    made->mark = RegistryKey::kOpen;
    *key = made;
    return ERROR_SUCCESS;
}

LONG RegCloseKey(HKEY key)
{
    const KeepErrno keep;
    if (FindPredefined(key) != nullptr) {
        return static_cast<LONG>(ERROR_SUCCESS);
    }
    RegistryKey* const opened = OpenKey(key);
    if (opened == nullptr) {
        return static_cast<LONG>(ERROR_INVALID_HANDLE);
    }
    GiveBack(opened);
    return static_cast<LONG>(ERROR_SUCCESS);
}

} // namespace qv::platform
