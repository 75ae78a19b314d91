#include "platform/registry_changes.h"

#include <cstring>

#include "platform/registry_lmdb.h"
#include "platform/system_time.h"

namespace qv::platform
{

namespace
{

constexpr std::size_t kMaxFacts = NodeFacts::kHead + kMaxKeyName * sizeof(WCHAR);

DWORD PutNow(const WriteTransaction& transaction, Node node, unsigned char* facts, std::size_t size)
{
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    std::memcpy(facts + sizeof(Node), &now, sizeof now);
    RecordKey key(node, RecordKind::kFacts);
    MDB_val bytes = key.Bytes();
    MDB_val data = {size, facts};
    return ErrorFromStore(mdb_put(transaction.Get(), transaction.Database(), &bytes, &data, 0));
}

} // namespace

DWORD ReadFacts(const WriteTransaction& transaction, Node node, MDB_val* data, NodeFacts* facts)
{
    RecordKey key(node, RecordKind::kFacts);
    MDB_val bytes = key.Bytes();
    const int result = mdb_get(transaction.Get(), transaction.Database(), &bytes, data);
    if (result != 0) {
        return result == MDB_NOTFOUND ? ERROR_KEY_DELETED : ErrorFromStore(result);
    }
    return NodeFacts::Read(*data, facts) ? ERROR_SUCCESS : ERROR_REGISTRY_CORRUPT;
}

DWORD Touch(const WriteTransaction& transaction, Node node)
{
    MDB_val data;
    NodeFacts facts;
    if (const DWORD error = ReadFacts(transaction, node, &data, &facts)) {
        return error;
    }
    unsigned char copy[kMaxFacts]; // the record itself moves while it is written
    std::memcpy(copy, data.mv_data, data.mv_size);
    return PutNow(transaction, node, copy, data.mv_size);
}

DWORD PutFacts(const WriteTransaction& transaction, Node node, Node parent,
               std::u16string_view name)
{
    unsigned char facts[kMaxFacts] = {};
    std::memcpy(facts, &parent, sizeof parent);
    std::memcpy(facts + NodeFacts::kHead, name.data(), name.size() * sizeof(WCHAR));
    return PutNow(transaction, node, facts, NodeFacts::kHead + name.size() * sizeof(WCHAR));
}

DWORD ReadFactsOfStore(const WriteTransaction& transaction, StoreFacts* facts)
{
    RecordKey key(kStoreNode, RecordKind::kFacts);
    MDB_val bytes = key.Bytes();
    MDB_val data;
    const int result = mdb_get(transaction.Get(), transaction.Database(), &bytes, &data);
    if (result != 0 && result != MDB_NOTFOUND) {
        return ErrorFromStore(result);
    }
    return result == 0 && ReadStoreFacts(data, facts) ? ERROR_SUCCESS : ERROR_REGISTRY_CORRUPT;
}

DWORD PutFactsOfStore(const WriteTransaction& transaction, const StoreFacts& facts)
{
    StoreFacts copy = facts;
    RecordKey key(kStoreNode, RecordKind::kFacts);
    MDB_val bytes = key.Bytes();
    MDB_val data = {sizeof copy, &copy};
    return ErrorFromStore(mdb_put(transaction.Get(), transaction.Database(), &bytes, &data, 0));
}

} // namespace qv::platform
