// Records of the store, one LMDB database without a name.
//
//   key                         data
//   node, kFacts                parent node, time of last change, written name
//   node, kSubKey, folded name  child node, written name
//   node, kValue, folded name   mark, 0, units of name, type, written name, data, mark
//   0, kFacts                   schema, 0, next node, number of deletions of keys
//
// In keys, the node is 8 bytes and names are UTF-16, both with the high byte first, so that the
// records of a key lie together and its names are in order. A folded name of more than 440 bytes is
// cut there and followed by 16 bytes of hash and one that tells names with the same hash apart.
// Numbers in data have the machine's byte order, as LMDB's own.
#pragma once

#include <lmdb.h>

#include <array>
#include <cstdint>
#include <string_view>

#include "platform/registry_names.h"
#include "platform/types.h"

namespace qv::platform
{

using Node = std::uint64_t;

enum class RecordKind : unsigned char
{
    kFacts = 0,
    kSubKey = 1,
    kValue = 2,
};

inline constexpr Node kStoreNode = 0;
inline constexpr std::uint32_t kSchema = 1;

inline constexpr std::size_t kNodeHead = 9; // node and kind, at the head of each key
inline constexpr std::size_t kMaxFold = 440;
inline constexpr std::size_t kMaxRecordKey = kNodeHead + kMaxFold + kNameHashSize + 1;

class RecordKey
{
public:
    RecordKey(Node node, RecordKind kind);
    // The name of a sub-key or value, not longer than the limits.
    RecordKey(Node node, RecordKind kind, std::u16string_view name);

    MDB_val Bytes() { return {m_size, m_bytes.data()}; }
    // The last byte of a cut name tells equal hashes apart.
    bool IsCut() const { return m_cut; }
    void SetProbe(unsigned char probe) { m_bytes[m_size - 1] = probe; }
    bool SameButForProbe(const MDB_val& key) const;

private:
    std::size_t m_size = kNodeHead;
    bool m_cut = false;
    std::array<unsigned char, kMaxRecordKey> m_bytes;
};

// True if the record belongs to that node and kind.
bool IsUnder(const MDB_val& key, Node node, RecordKind kind);

struct StoreFacts
{
    std::uint32_t schema;
    std::uint32_t zero;
    Node nextNode;
    std::uint64_t deletions; // a path once resolved stays so until this changes
};

// A written name where it stands in a record.
struct StoredName
{
    const unsigned char* bytes;
    std::size_t units;

    void CopyTo(WCHAR* name) const;
};

// Each Read is false for a record that is not what its key says: the store is damaged.

struct NodeFacts
{
    Node parent;
    FILETIME changed;
    StoredName name;

    static constexpr std::size_t kHead = 16;
    static bool Read(const MDB_val& data, NodeFacts* facts);
};

struct SubKey
{
    Node child;
    StoredName name;

    static constexpr std::size_t kHead = 8;
    static bool Read(const MDB_val& data, SubKey* subKey);
};

struct ValueRecord
{
    DWORD type;
    StoredName name;
    const unsigned char* data;
    DWORD size;

    static constexpr std::size_t kHead = 8;
    // At both ends of a record: a file whose end was cut off reads as zeros there.
    static constexpr unsigned char kMark = 0xA5;
    static bool Read(const MDB_val& data, ValueRecord* value);
    static std::size_t Size(std::size_t nameUnits, std::size_t dataSize);
    // Writes a whole record. The name is bytes at any alignment.
    static void Write(unsigned char* record, DWORD type, StoredName name, const void* data,
                      DWORD size);
};

bool ReadStoreFacts(const MDB_val& data, StoreFacts* facts);

// Finds the record of that name. For a name that was cut, the key's last byte becomes that of the
// record found, or, with MDB_NOTFOUND, the first one that is free. MDB_KEYEXIST: none is free.
int FindRecord(MDB_txn* transaction, MDB_dbi database, RecordKey& key, std::u16string_view name,
               RecordKind kind, MDB_val* data);

} // namespace qv::platform
