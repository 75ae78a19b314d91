// Deleting keys.
#include <cuchar>
#include <new>
#include <string>

#include "platform/error.h"
#include "platform/registry_changes.h"
#include "platform/registry_handles.h"
#include "platform/registry_lmdb.h"
#include "platform/registry_paths.h"
#include "platform/registry_sharing.h"
#include "platform/registry_store.h"

namespace qv::platform
{

namespace
{

// The record that makes the node a child, with the name under which it was found.
struct Found
{
    Node node;
    Node parent;
    WCHAR name[kMaxKeyName + 1];
    std::size_t units;
};

DWORD FindByFacts(const WriteTransaction& transaction, Node node, Found* found)
{
    MDB_val data;
    NodeFacts facts;
    if (const DWORD error = ReadFacts(transaction, node, &data, &facts)) {
        return error;
    }
    found->node = node;
    found->parent = facts.parent;
    found->units = facts.name.units;
    facts.name.CopyTo(found->name);
    return ERROR_SUCCESS;
}

DWORD FindByPath(const WriteTransaction& transaction, Node base, std::u16string_view path,
                 Found* found)
{
    if (const DWORD error = CheckNode(transaction.Get(), transaction.Database(), base)) {
        return error;
    }
    Node node = base;
    while (!path.empty()) {
        const std::u16string_view name = TakeComponent(&path);
        if (const DWORD error =
                FindChild(transaction.Get(), transaction.Database(), node, name, &node)) {
            return error;
        }
    }
    return FindByFacts(transaction, node, found);
}

DWORD CheckNoSubKeys(const WriteTransaction& transaction, Node node)
{
    Cursor cursor(transaction.Get(), transaction.Database());
    RecordKey key(node, RecordKind::kSubKey);
    MDB_val at = key.Bytes();
    MDB_val data;
    const int result = cursor.Move(&at, &data, MDB_SET_RANGE);
    if (result == 0) {
        return IsUnder(at, node, RecordKind::kSubKey) ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
    }
    return result == MDB_NOTFOUND ? ERROR_SUCCESS : ErrorFromStore(result);
}

DWORD RemoveValues(const WriteTransaction& transaction, Node node)
{
    for (;;) {
        Cursor cursor(transaction.Get(), transaction.Database());
        RecordKey key(node, RecordKind::kValue);
        MDB_val at = key.Bytes();
        MDB_val data;
        int result = cursor.Move(&at, &data, MDB_SET_RANGE);
        if (result == MDB_NOTFOUND || (result == 0 && !IsUnder(at, node, RecordKind::kValue))) {
            return ERROR_SUCCESS;
        }
        if (result == 0) {
            result = cursor.Delete();
        }
        if (result != 0) {
            return ErrorFromStore(result);
        }
    }
}

DWORD Remove(const WriteTransaction& transaction, RecordKey& key)
{
    MDB_val bytes = key.Bytes();
    const int result = mdb_del(transaction.Get(), transaction.Database(), &bytes, nullptr);
    return result == MDB_NOTFOUND ? ERROR_REGISTRY_CORRUPT : ErrorFromStore(result);
}

DWORD RemoveChildRecord(const WriteTransaction& transaction, const Found& found)
{
    const std::u16string_view name(found.name, found.units);
    RecordKey key(found.parent, RecordKind::kSubKey, name);
    MDB_val data;
    const int result = FindRecord(transaction.Get(), transaction.Database(), key, name,
                                  RecordKind::kSubKey, &data);
    if (result != 0) {
        return ErrorFromStore(result == MDB_NOTFOUND ? MDB_CORRUPTED : result);
    }
    return Remove(transaction, key);
}

// What was resolved from paths no longer holds.
DWORD CountDeletion(const WriteTransaction& transaction)
{
    StoreFacts facts;
    if (const DWORD error = ReadFactsOfStore(transaction, &facts)) {
        return error;
    }
    ++facts.deletions;
    return PutFactsOfStore(transaction, facts);
}

DWORD RemoveKey(const WriteTransaction& transaction, const Found& found)
{
    if (const DWORD error = CheckNoSubKeys(transaction, found.node)) {
        return error;
    }
    if (const DWORD error = RemoveValues(transaction, found.node)) {
        return error;
    }
    RecordKey facts(found.node, RecordKind::kFacts);
    if (const DWORD error = Remove(transaction, facts)) {
        return error;
    }
    if (const DWORD error = RemoveChildRecord(transaction, found)) {
        return error;
    }
    if (const DWORD error = Touch(transaction, found.parent)) {
        return error;
    }
    return CountDeletion(transaction);
}

DWORD DeleteKey(HKEY key, const WCHAR* path, DWORD view)
{
    KeyTarget target;
    if (path == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    if (const DWORD error = FindTarget(key, view, &target)) {
        return error;
    }
    const std::u16string_view text = TrimPath(path);
    if (text.empty() && target.opened == nullptr) {
        return ERROR_ACCESS_DENIED;
    }
    if (const DWORD error = CheckPath(text)) {
        return error;
    }
    return Change(target.part, [&](const WriteTransaction& transaction) {
        Found found;
        if (const DWORD error = FindByPath(transaction, target.node, text, &found)) {
            return error;
        }
        // A handle may stand for a predefined key too: those have no parent.
        return found.parent == kStoreNode ? ERROR_ACCESS_DENIED : RemoveKey(transaction, found);
    });
}

// From the locale's charset. 87 for bytes that are none of its characters.
DWORD Widen(const char* text, std::u16string* wide)
{
    std::mbstate_t state = {};
    const char* const end = text + std::char_traits<char>::length(text);
    for (;;) {
        char16_t unit;
        const std::size_t used =
            std::mbrtoc16(&unit, text, static_cast<std::size_t>(end - text), &state);
        if (used == static_cast<std::size_t>(-3)) { // the second half of a pair
            wide->push_back(unit);
            continue;
        }
        if (text == end) {
            return ERROR_SUCCESS;
        }
        if (used > static_cast<std::size_t>(end - text)) {
            return ERROR_INVALID_PARAMETER;
        }
        wide->push_back(unit);
        text += used;
    }
}

} // namespace

LONG RegDeleteKeyExW(HKEY key, const WCHAR* path, DWORD view, DWORD /*reserved*/)
{
    const KeepErrno keep;
    return static_cast<LONG>(DeleteKey(key, path, view));
}

LONG RegDeleteKeyW(HKEY key, const WCHAR* path)
{
    const KeepErrno keep;
    return static_cast<LONG>(DeleteKey(key, path, 0));
}

LONG RegDeleteKeyA(HKEY key, const char* path)
{
    const KeepErrno keep;
    if (path == nullptr) {
        return static_cast<LONG>(ERROR_INVALID_PARAMETER);
    }
    try {
        std::u16string wide;
        DWORD error = Widen(path, &wide);
        if (error == ERROR_SUCCESS) {
            error = DeleteKey(key, wide.c_str(), 0);
        }
        return static_cast<LONG>(error);
    } catch (const std::bad_alloc&) {
        return static_cast<LONG>(ERROR_OUTOFMEMORY);
    }
}

} // namespace qv::platform
