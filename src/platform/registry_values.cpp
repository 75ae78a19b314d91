// Values by name.
#include <cstring>
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

constexpr DWORD kMaxData = 0x40000000; // more than any store holds

std::u16string_view NameOrDefault(const WCHAR* name)
{
    return name == nullptr ? std::u16string_view() : name;
}

// 2 for a missing value, 1018 if its key is gone as well.
DWORD WhyMissing(MDB_txn* transaction, MDB_dbi database, Node node)
{
    const DWORD error = CheckNode(transaction, database, node);
    return error != ERROR_SUCCESS ? error : ERROR_FILE_NOT_FOUND;
}

DWORD Query(HKEY key, const WCHAR* name, DWORD* type, void* data, DWORD* dataSize)
{
    KeyTarget target;
    if (data != nullptr && dataSize == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    if (const DWORD error = FindTarget(key, 0, &target)) {
        return error;
    }
    if ((target.access & KEY_QUERY_VALUE) == 0) {
        return ERROR_ACCESS_DENIED;
    }
    const std::u16string_view text = NameOrDefault(name);
    ReadView view;
    if (const DWORD error = view.Begin(target.part)) {
        return error;
    }
    if (text.size() > kMaxValueName) {
        return WhyMissing(view.Get(), view.Database(), target.node);
    }
    RecordKey record(target.node, RecordKind::kValue, text);
    MDB_val bytes;
    const int result =
        FindRecord(view.Get(), view.Database(), record, text, RecordKind::kValue, &bytes);
    if (result != 0) {
        return result == MDB_NOTFOUND ? WhyMissing(view.Get(), view.Database(), target.node)
                                      : ErrorFromStore(result);
    }
    ValueRecord value;
    if (!ValueRecord::Read(bytes, &value)) {
        return ERROR_REGISTRY_CORRUPT;
    }
    if (type != nullptr) {
        *type = value.type;
    }
    if (dataSize == nullptr) {
        return ERROR_SUCCESS;
    }
    const DWORD capacity = *dataSize;
    *dataSize = value.size;
    if (data != nullptr && capacity < value.size) {
        return ERROR_MORE_DATA;
    }
    if (data != nullptr && value.size != 0) {
        std::memcpy(data, value.data, value.size);
    }
    return ERROR_SUCCESS;
}

struct NewValue
{
    std::u16string_view name;
    DWORD type;
    const void* data;
    DWORD size;
};

// A value that is there keeps the form in which its name was first written. Throws std::bad_alloc.
DWORD PutValue(const WriteTransaction& transaction, Node node, const NewValue& value)
{
    RecordKey key(node, RecordKind::kValue, value.name);
    MDB_val data;
    const int found = FindRecord(transaction.Get(), transaction.Database(), key, value.name,
                                 RecordKind::kValue, &data);
    if (found != 0 && found != MDB_NOTFOUND) {
        return ErrorFromStore(found);
    }
    std::u16string name(value.name);
    if (found == 0) {
        ValueRecord old;
        if (!ValueRecord::Read(data, &old)) {
            return ERROR_REGISTRY_CORRUPT;
        }
        name.resize(old.name.units);
        old.name.CopyTo(name.data());
    }
    MDB_val bytes = key.Bytes();
    data = {ValueRecord::Size(name.size(), value.size), nullptr};
    const int result =
        mdb_put(transaction.Get(), transaction.Database(), &bytes, &data, MDB_RESERVE);
    if (result != 0) {
        return ErrorFromStore(result);
    }
    ValueRecord::Write(static_cast<unsigned char*>(data.mv_data), value.type,
                       {reinterpret_cast<const unsigned char*>(name.data()), name.size()},
                       value.data, value.size);
    return ERROR_SUCCESS;
}

DWORD Set(HKEY key, const NewValue& value)
{
    KeyTarget target;
    if (value.data == nullptr && value.size != 0) {
        return ERROR_INVALID_PARAMETER;
    }
    if (const DWORD error = FindTarget(key, 0, &target)) {
        return error;
    }
    if ((target.access & KEY_SET_VALUE) == 0) {
        return ERROR_ACCESS_DENIED;
    }
    if (value.name.size() > kMaxValueName) {
        return ERROR_INVALID_PARAMETER;
    }
    if (value.size > kMaxData) {
        return ERROR_NO_SYSTEM_RESOURCES;
    }
    try {
        return Change(target.part, [&](const WriteTransaction& transaction) {
            const DWORD error = Touch(transaction, target.node);
            return error != ERROR_SUCCESS ? error : PutValue(transaction, target.node, value);
        });
    } catch (const std::bad_alloc&) {
        return ERROR_OUTOFMEMORY;
    }
}

DWORD RemoveValue(const WriteTransaction& transaction, Node node, std::u16string_view name)
{
    if (const DWORD error = CheckNode(transaction.Get(), transaction.Database(), node)) {
        return error;
    }
    RecordKey key(node, RecordKind::kValue, name);
    MDB_val data;
    int result =
        FindRecord(transaction.Get(), transaction.Database(), key, name, RecordKind::kValue, &data);
    if (result == 0) {
        MDB_val bytes = key.Bytes();
        result = mdb_del(transaction.Get(), transaction.Database(), &bytes, nullptr);
    }
    return result != 0 ? ErrorFromStore(result) : Touch(transaction, node);
}

DWORD Delete(HKEY key, std::u16string_view name)
{
    KeyTarget target;
    if (const DWORD error = FindTarget(key, 0, &target)) {
        return error;
    }
    if ((target.access & KEY_SET_VALUE) == 0) {
        return ERROR_ACCESS_DENIED;
    }
    if (name.size() > kMaxValueName) {
        return ERROR_FILE_NOT_FOUND;
    }
    return Change(target.part, [&](const WriteTransaction& transaction) {
        return RemoveValue(transaction, target.node, name);
    });
}

} // namespace

LONG RegQueryValueExW(HKEY key, const WCHAR* name, DWORD* /*reserved*/, DWORD* type, void* data,
                      DWORD* dataSize)
{
    const KeepErrno keep;
    return static_cast<LONG>(Query(key, name, type, data, dataSize));
}

LONG RegSetValueExW(HKEY key, const WCHAR* name, DWORD /*reserved*/, DWORD type, const void* data,
                    DWORD size)
{
    const KeepErrno keep;
    return static_cast<LONG>(Set(key, {NameOrDefault(name), type, data, size}));
}

LONG RegDeleteValueW(HKEY key, const WCHAR* name)
{
    const KeepErrno keep;
    return static_cast<LONG>(Delete(key, NameOrDefault(name)));
}

} // namespace qv::platform
