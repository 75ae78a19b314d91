// Sub-keys and values by index.
#include "platform/registry_enumeration.h"

#include <cstdlib>
#include <cstring>

#include "platform/error.h"
#include "platform/registry_handles.h"
#include "platform/registry_lmdb.h"
#include "platform/registry_paths.h"
#include "platform/registry_sharing.h"
#include "platform/registry_store.h"

namespace qv::platform
{

// Sub-keys from index first on, as they are while commit is the last one.
struct NamesAhead
{
    static constexpr DWORD kNames = 64;

    struct Name
    {
        std::uint16_t begin;
        std::uint16_t units;
    };

    std::size_t commit;
    DWORD first;
    DWORD count;
    std::size_t used;
    Name names[kNames];
    WCHAR text[2048];
};

namespace
{

struct Record
{
    MDB_val key;
    MDB_val data;
};

// The record with that index, or MDB_NOTFOUND. One step from the last one, where nothing has
// changed since; otherwise counted from the first, so that an index is always exact.
int Seek(MDB_cursor* cursor, const KeyTarget& target, RecordKind kind, DWORD index,
         std::size_t number, Record* record)
{
    EnumPosition* const position = target.opened != nullptr ? &target.opened->position : nullptr;
    RecordKey first(target.node, kind);
    int result;
    DWORD steps = index;
    if (position != nullptr && position->IsBefore(kind, index, number)) {
        record->key = {position->keySize, position->key};
        steps = 1;
    } else {
        record->key = first.Bytes();
    }
    result = mdb_cursor_get(cursor, &record->key, &record->data, MDB_SET_RANGE);
    for (; result == 0 && steps != 0 && IsUnder(record->key, target.node, kind); --steps) {
        result = mdb_cursor_get(cursor, &record->key, &record->data, MDB_NEXT);
    }
    if (result == 0 && !IsUnder(record->key, target.node, kind)) {
        result = MDB_NOTFOUND;
    }
    return result;
}

// 259 at the end, 1018 if the key itself is gone.
DWORD WhyNoMore(const ReadView& view, const KeyTarget& target, int result)
{
    if (result != MDB_NOTFOUND) {
        return ErrorFromStore(result);
    }
    const DWORD error = CheckNode(view.Get(), view.Database(), target.node);
    return error != ERROR_SUCCESS ? error : ERROR_NO_MORE_ITEMS;
}

DWORD FindTime(const ReadView& view, Node node, FILETIME* time)
{
    RecordKey key(node, RecordKind::kFacts);
    MDB_val bytes = key.Bytes();
    MDB_val data;
    NodeFacts facts;
    const int result = mdb_get(view.Get(), view.Database(), &bytes, &data);
    if (result != 0 && result != MDB_NOTFOUND) {
        return ErrorFromStore(result);
    }
    if (result != 0 || !NodeFacts::Read(data, &facts)) {
        return ERROR_REGISTRY_CORRUPT;
    }
    *time = facts.changed;
    return ERROR_SUCCESS;
}

// What a caller of RegEnumKeyExW wants to know.
struct KeyRequest
{
    WCHAR* name;
    DWORD* nameSize;
    FILETIME* time;

    DWORD GiveName(const StoredName& stored) const
    {
        if (*nameSize <= stored.units) {
            return ERROR_MORE_DATA;
        }
        stored.CopyTo(name);
        *nameSize = static_cast<DWORD>(stored.units);
        return ERROR_SUCCESS;
    }
};

// False if the name has not been read ahead, or is not all that is wanted.
bool GiveFromAhead(const NamesAhead& ahead, DWORD index, const KeyRequest& request, DWORD* error)
{
    if (index < ahead.first || index - ahead.first >= ahead.count || request.time != nullptr) {
        return false;
    }
    const NamesAhead::Name& name = ahead.names[index - ahead.first];
    const auto* const bytes = reinterpret_cast<const unsigned char*>(ahead.text + name.begin);
    *error = request.GiveName({bytes, name.units});
    return true;
}

// False if the block is full.
bool Keep(NamesAhead& ahead, const StoredName& name)
{
    if (ahead.count == NamesAhead::kNames ||
        ahead.used + name.units + 1 > sizeof ahead.text / sizeof ahead.text[0]) {
        return false;
    }
    ahead.names[ahead.count++] = {static_cast<std::uint16_t>(ahead.used),
                                  static_cast<std::uint16_t>(name.units)};
    name.CopyTo(ahead.text + ahead.used);
    ahead.used += name.units + 1;
    return true;
}

// Reads on from the cursor's record, which has that index. What cannot be read is left to the call
// that asks for it.
void ReadAhead(const ReadView& view, MDB_cursor* cursor, const KeyTarget& target, DWORD index,
               Record record)
{
    RegistryKey& opened = *target.opened;
    if (opened.ahead == nullptr) {
        opened.ahead = static_cast<NamesAhead*>(std::malloc(sizeof(NamesAhead)));
        if (opened.ahead == nullptr) {
            return;
        }
    }
    NamesAhead& ahead = *opened.ahead;
    ahead.commit = view.Number();
    ahead.first = index;
    ahead.count = 0;
    ahead.used = 0;
    MDB_val last = record.key;
    for (int result = 0; result == 0 && IsUnder(record.key, target.node, RecordKind::kSubKey);
         result = mdb_cursor_get(cursor, &record.key, &record.data, MDB_NEXT)) {
        SubKey subKey;
        if (!SubKey::Read(record.data, &subKey) || !Keep(ahead, subKey.name)) {
            break;
        }
        last = record.key;
    }
    if (ahead.count != 0) {
        opened.position.Set(RecordKind::kSubKey, index + ahead.count - 1, ahead.commit, last);
    }
}

DWORD EnumKey(const KeyTarget& target, DWORD index, const KeyRequest& request)
{
    ReadView view;
    MDB_cursor* cursor = nullptr;
    Record record;
    if (const DWORD error = view.Begin(target.part)) {
        return error;
    }
    int result = view.OpenCursor(&cursor);
    if (result != 0) {
        return ErrorFromStore(result);
    }
    const bool inOrder = target.opened != nullptr && target.opened->position.IsBefore(
                                                         RecordKind::kSubKey, index, view.Number());
    result = Seek(cursor, target, RecordKind::kSubKey, index, view.Number(), &record);
    if (result != 0) {
        return WhyNoMore(view, target, result);
    }
    SubKey subKey;
    if (!SubKey::Read(record.data, &subKey)) {
        return ERROR_REGISTRY_CORRUPT;
    }
    DWORD error = request.GiveName(subKey.name);
    if (error == ERROR_SUCCESS && request.time != nullptr) {
        error = FindTime(view, subKey.child, request.time);
    }
    if (target.opened != nullptr) {
        target.opened->position.Set(RecordKind::kSubKey, index, view.Number(), record.key);
    }
    if (inOrder && request.time == nullptr) {
        ReadAhead(view, cursor, target, index, record);
    }
    return error;
}

DWORD EnumKey(HKEY key, DWORD index, const KeyRequest& request)
{
    KeyTarget target;
    if (request.name == nullptr || request.nameSize == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    if (const DWORD error = FindTarget(key, 0, &target)) {
        return error;
    }
    if ((target.access & KEY_ENUMERATE_SUB_KEYS) == 0) {
        return ERROR_ACCESS_DENIED;
    }
    if (target.opened != nullptr && target.opened->ahead != nullptr) {
        Store* store = nullptr;
        DWORD error = FindStore(target.part, &store);
        const NamesAhead& ahead = *target.opened->ahead;
        if (error == ERROR_SUCCESS && store->LastCommit() == ahead.commit &&
            GiveFromAhead(ahead, index, request, &error)) {
            return error;
        }
    }
    return EnumKey(target, index, request);
}

// What a caller of RegEnumValueW wants to know.
struct ValueRequest
{
    WCHAR* name;
    DWORD* nameSize;
    DWORD* type;
    void* data;
    DWORD* dataSize;

    DWORD Give(const ValueRecord& value) const
    {
        if (*nameSize <= value.name.units) {
            return ERROR_MORE_DATA;
        }
        value.name.CopyTo(name);
        *nameSize = static_cast<DWORD>(value.name.units);
        if (type != nullptr) {
            *type = value.type;
        }
        if (dataSize == nullptr) {
            return ERROR_SUCCESS;
        }
        const DWORD capacity = *dataSize;
        *dataSize = value.size;
        if (data == nullptr || value.size == 0) {
            return ERROR_SUCCESS;
        }
        if (capacity < value.size) {
            return ERROR_MORE_DATA;
        }
        std::memcpy(data, value.data, value.size);
        return ERROR_SUCCESS;
    }
};

DWORD EnumValue(HKEY key, DWORD index, const ValueRequest& request)
{
    KeyTarget target;
    if (request.name == nullptr || request.nameSize == nullptr ||
        (request.data != nullptr && request.dataSize == nullptr)) {
        return ERROR_INVALID_PARAMETER;
    }
    if (const DWORD error = FindTarget(key, 0, &target)) {
        return error;
    }
    if ((target.access & KEY_QUERY_VALUE) == 0) {
        return ERROR_ACCESS_DENIED;
    }
    ReadView view;
    MDB_cursor* cursor = nullptr;
    Record record;
    if (const DWORD error = view.Begin(target.part)) {
        return error;
    }
    int result = view.OpenCursor(&cursor);
    if (result == 0) {
        result = Seek(cursor, target, RecordKind::kValue, index, view.Number(), &record);
    }
    if (result != 0) {
        return WhyNoMore(view, target, result);
    }
    ValueRecord value;
    if (!ValueRecord::Read(record.data, &value)) {
        return ERROR_REGISTRY_CORRUPT;
    }
    if (target.opened != nullptr) {
        target.opened->position.Set(RecordKind::kValue, index, view.Number(), record.key);
    }
    return request.Give(value);
}

} // namespace

void FreeNamesAhead(NamesAhead* names)
{
    std::free(names);
}

LONG RegEnumKeyExW(HKEY key, DWORD index, WCHAR* name, DWORD* nameSize, DWORD* /*reserved*/,
                   WCHAR* /*className*/, DWORD* /*classSize*/, FILETIME* time)
{
    const KeepErrno keep;
    return static_cast<LONG>(EnumKey(key, index, KeyRequest{name, nameSize, time}));
}

LONG RegEnumValueW(HKEY key, DWORD index, WCHAR* name, DWORD* nameSize, DWORD* /*reserved*/,
                   DWORD* type, void* data, DWORD* dataSize)
{
    const KeepErrno keep;
    return static_cast<LONG>(EnumValue(key, index, {name, nameSize, type, data, dataSize}));
}

} // namespace qv::platform
