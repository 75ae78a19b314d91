#include "platform/registry_records.h"

#include <cstring>

#include "platform/registry_lmdb.h"

namespace qv::platform
{

namespace
{

void PutNode(Node node, unsigned char* bytes)
{
    for (int i = 7; i >= 0; --i) {
        bytes[i] = static_cast<unsigned char>(node);
        node >>= 8;
    }
}

const unsigned char* BytesOf(const MDB_val& data)
{
    return static_cast<const unsigned char*>(data.mv_data);
}

// What stands behind a head of that size is a name, to the end.
bool ReadName(const MDB_val& data, std::size_t head, StoredName* name)
{
    if (data.mv_size < head || (data.mv_size - head) % sizeof(WCHAR) != 0) {
        return false;
    }
    *name = {BytesOf(data) + head, (data.mv_size - head) / sizeof(WCHAR)};
    return name->units <= kMaxKeyName;
}

bool NameOf(const MDB_val& data, RecordKind kind, StoredName* name)
{
    if (kind == RecordKind::kSubKey) {
        return ReadName(data, SubKey::kHead, name);
    }
    ValueRecord value;
    const bool good = ValueRecord::Read(data, &value);
    *name = value.name;
    return good;
}

// A deletion may have left a gap between names of one hash, so all of them are looked at.
int FindCutName(MDB_txn* transaction, MDB_dbi database, RecordKey& key, std::u16string_view name,
                RecordKind kind, MDB_val* data)
{
    Cursor cursor(transaction, database);
    key.SetProbe(0);
    MDB_val at = key.Bytes();
    unsigned free = 0;
    int error = cursor.Move(&at, data, MDB_SET_RANGE);
    for (; error == 0 && key.SameButForProbe(at); error = cursor.Move(&at, data, MDB_NEXT)) {
        const unsigned probe = BytesOf(at)[at.mv_size - 1];
        StoredName stored = {};
        if (!NameOf(*data, kind, &stored)) {
            return MDB_CORRUPTED;
        }
        if (SameName(name, stored.bytes, stored.units)) {
            key.SetProbe(static_cast<unsigned char>(probe));
            return 0;
        }
        free += probe == free ? 1 : 0;
    }
    if (error != 0 && error != MDB_NOTFOUND) {
        return error;
    }
    if (free > 0xFF) {
        return MDB_KEYEXIST;
    }
    key.SetProbe(static_cast<unsigned char>(free));
    return MDB_NOTFOUND;
}

} // namespace

RecordKey::RecordKey(Node node, RecordKind kind)
{
    PutNode(node, m_bytes.data());
    m_bytes[8] = static_cast<unsigned char>(kind);
}

RecordKey::RecordKey(Node node, RecordKind kind, std::u16string_view name) : RecordKey(node, kind)
{
    m_cut = name.size() * sizeof(WCHAR) > kMaxFold;
    const std::size_t whole = m_cut ? kMaxFold / sizeof(WCHAR) : name.size();
    unsigned char* to = m_bytes.data() + kNodeHead;
    for (std::size_t i = 0; i < whole; ++i) {
        const WCHAR unit = FoldUnit(name[i]);
        *to++ = static_cast<unsigned char>(unit >> 8);
        *to++ = static_cast<unsigned char>(unit);
    }
    if (m_cut) {
        HashFoldedName(name.data(), name.size(), to);
        to += kNameHashSize;
        *to++ = 0;
    }
    m_size = static_cast<std::size_t>(to - m_bytes.data());
}

bool RecordKey::SameButForProbe(const MDB_val& key) const
{
    return key.mv_size == m_size && std::memcmp(key.mv_data, m_bytes.data(), m_size - 1) == 0;
}

bool IsUnder(const MDB_val& key, Node node, RecordKind kind)
{
    unsigned char head[kNodeHead];
    PutNode(node, head);
    head[8] = static_cast<unsigned char>(kind);
    return key.mv_size >= kNodeHead && std::memcmp(key.mv_data, head, kNodeHead) == 0;
}

void StoredName::CopyTo(WCHAR* name) const
{
    std::memcpy(name, bytes, units * sizeof(WCHAR));
    name[units] = 0;
}

bool NodeFacts::Read(const MDB_val& data, NodeFacts* facts)
{
    if (!ReadName(data, kHead, &facts->name)) {
        return false;
    }
    std::memcpy(&facts->parent, BytesOf(data), sizeof facts->parent);
    std::memcpy(&facts->changed, BytesOf(data) + 8, sizeof facts->changed);
    return true;
}

bool SubKey::Read(const MDB_val& data, SubKey* subKey)
{
    if (!ReadName(data, kHead, &subKey->name)) {
        return false;
    }
    std::memcpy(&subKey->child, BytesOf(data), sizeof subKey->child);
    return true;
}

std::size_t ValueRecord::Size(std::size_t nameUnits, std::size_t dataSize)
{
    return kHead + nameUnits * sizeof(WCHAR) + dataSize + 1;
}

bool ValueRecord::Read(const MDB_val& data, ValueRecord* value)
{
    *value = {};
    const unsigned char* const record = BytesOf(data);
    if (data.mv_size < Size(0, 0) || record[0] != kMark || record[data.mv_size - 1] != kMark) {
        return false;
    }
    std::uint16_t units;
    std::memcpy(&units, record + 2, sizeof units);
    const std::size_t empty = Size(units, 0);
    if (data.mv_size < empty || units > kMaxValueName || data.mv_size - empty > UINT32_MAX) {
        return false;
    }
    std::memcpy(&value->type, record + 4, sizeof value->type);
    value->name = {record + kHead, units};
    value->data = record + kHead + units * sizeof(WCHAR);
    value->size = static_cast<DWORD>(data.mv_size - empty);
    return true;
}

void ValueRecord::Write(unsigned char* record, DWORD type, StoredName name, const void* data,
                        DWORD size)
{
    const auto units = static_cast<std::uint16_t>(name.units);
    record[0] = kMark;
    record[1] = 0;
    std::memcpy(record + 2, &units, sizeof units);
    std::memcpy(record + 4, &type, sizeof type);
    unsigned char* to = record + kHead;
    if (name.units != 0) {
        std::memcpy(to, name.bytes, name.units * sizeof(WCHAR));
        to += name.units * sizeof(WCHAR);
    }
    if (size != 0) {
        std::memcpy(to, data, size);
        to += size;
    }
    *to = kMark;
}

bool ReadStoreFacts(const MDB_val& data, StoreFacts* facts)
{
    if (data.mv_size != sizeof *facts) {
        return false;
    }
    std::memcpy(facts, data.mv_data, sizeof *facts);
    return facts->schema == kSchema && facts->zero == 0;
}

int FindRecord(MDB_txn* transaction, MDB_dbi database, RecordKey& key, std::u16string_view name,
               RecordKind kind, MDB_val* data)
{
    if (key.IsCut()) {
        return FindCutName(transaction, database, key, name, kind, data);
    }
    MDB_val bytes = key.Bytes();
    return mdb_get(transaction, database, &bytes, data);
}

} // namespace qv::platform
