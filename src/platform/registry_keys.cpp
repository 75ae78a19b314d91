// Opening and making keys.
#include <cstring>

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

// SET_VALUE, CREATE_SUB_KEY, DELETE, WRITE_DAC, WRITE_OWNER
constexpr DWORD kWriteRights = KEY_SET_VALUE | KEY_CREATE_SUB_KEY | 0x10000 | 0x40000 | 0x80000;

DWORD LookUp(const KeyTarget& target, std::u16string_view path, DWORD access, Node* node)
{
    ReadView view;
    if (const DWORD error = view.Begin(target.part)) {
        return error;
    }
    if (view.Of().readOnly && (access & kWriteRights) != 0) {
        return ERROR_ACCESS_DENIED;
    }
    return FindNode(view, target.node, path, node);
}

DWORD Open(HKEY key, const WCHAR* path, DWORD access, HKEY* opened)
{
    KeyTarget target;
    if (opened == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    if (const DWORD error = FindTarget(key, access, &target)) {
        return error;
    }
    Node node;
    if (const DWORD error = LookUp(target, TrimPath(path), access, &node)) {
        return error;
    }
    return MakeHandle(target.part, node, access, opened);
}

DWORD AddChild(const WriteTransaction& transaction, Node parent, std::u16string_view name,
               StoreFacts* facts, Node* child)
{
    *child = facts->nextNode++;
    RecordKey key(parent, RecordKind::kSubKey, name);
    MDB_val data;
    const int found = FindRecord(transaction.Get(), transaction.Database(), key, name,
                                 RecordKind::kSubKey, &data);
    if (found != MDB_NOTFOUND) {
        return ErrorFromStore(found == 0 ? MDB_CORRUPTED : found); // it was looked for just before
    }
    unsigned char record[SubKey::kHead + kMaxKeyName * sizeof(WCHAR)];
    std::memcpy(record, child, sizeof *child);
    std::memcpy(record + SubKey::kHead, name.data(), name.size() * sizeof(WCHAR));
    MDB_val bytes = key.Bytes();
    data = {SubKey::kHead + name.size() * sizeof(WCHAR), record};
    const int result = mdb_put(transaction.Get(), transaction.Database(), &bytes, &data, 0);
    return result != 0 ? ErrorFromStore(result) : PutFacts(transaction, *child, parent, name);
}

// Adds what is missing of the path. Another process may have been quicker: then nothing is.
DWORD AddLevels(const WriteTransaction& transaction, Node base, std::u16string_view path,
                Node* node, bool* created)
{
    *created = false;
    *node = base;
    if (const DWORD error = CheckNode(transaction.Get(), transaction.Database(), base)) {
        return error;
    }
    StoreFacts facts;
    while (!path.empty()) {
        const std::u16string_view name = TakeComponent(&path);
        if (!*created) {
            const DWORD error =
                FindChild(transaction.Get(), transaction.Database(), *node, name, node);
            if (error == ERROR_SUCCESS) {
                continue;
            }
            if (error != ERROR_FILE_NOT_FOUND) {
                return error;
            }
            if (const DWORD failed = ReadFactsOfStore(transaction, &facts)) {
                return failed;
            }
            if (const DWORD failed = Touch(transaction, *node)) {
                return failed;
            }
            *created = true;
        }
        if (const DWORD error = AddChild(transaction, *node, name, &facts, node)) {
            return error;
        }
    }
    return *created ? PutFactsOfStore(transaction, facts) : ERROR_SUCCESS;
}

DWORD Create(HKEY key, const WCHAR* path, DWORD access, HKEY* opened, DWORD* disposition)
{
    KeyTarget target;
    if (opened == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    if (const DWORD error = FindTarget(key, access, &target)) {
        return error;
    }
    const std::u16string_view text = TrimPath(path);
    if (const DWORD error = CheckPath(text)) {
        return error;
    }
    Node node;
    bool created = false;
    DWORD error = LookUp(target, text, access, &node);
    if (error == ERROR_FILE_NOT_FOUND) {
        if ((target.access & KEY_CREATE_SUB_KEY) == 0) {
            return ERROR_ACCESS_DENIED;
        }
        error = Change(target.part, [&](const WriteTransaction& transaction) {
            return AddLevels(transaction, target.node, text, &node, &created);
        });
    }
    if (error != ERROR_SUCCESS) {
        return error;
    }
    if (disposition != nullptr) {
        *disposition = created ? REG_CREATED_NEW_KEY : REG_OPENED_EXISTING_KEY;
    }
    return MakeHandle(target.part, node, access, opened);
}

} // namespace

LONG RegOpenKeyExW(HKEY key, const WCHAR* path, DWORD /*options*/, DWORD access, HKEY* opened)
{
    const KeepErrno keep;
    return static_cast<LONG>(Open(key, path, access, opened));
}

LONG RegCreateKeyExW(HKEY key, const WCHAR* path, DWORD /*reserved*/, const WCHAR* /*className*/,
                     DWORD /*options*/, DWORD access, const SECURITY_ATTRIBUTES* /*attributes*/,
                     HKEY* opened, DWORD* disposition)
{
    const KeepErrno keep;
    return static_cast<LONG>(Create(key, path, access, opened, disposition));
}

} // namespace qv::platform
