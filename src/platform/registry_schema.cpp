#include "platform/registry_schema.h"

#include <cerrno>
#include <cstring>

#include "platform/registry_lmdb.h"
#include "platform/system_time.h"

namespace qv::platform
{

namespace
{

struct RootRow
{
    StorePart part;
    Node node;
};

constexpr RootRow kRoots[] = {
    {StorePart::kMachine, kLocalMachine64}, {StorePart::kMachine, kLocalMachine32},
    {StorePart::kMachine, kClassesRoot64},  {StorePart::kMachine, kClassesRoot32},
    {StorePart::kUser, kCurrentUser},
};

int PutRoots(MDB_txn* transaction, MDB_dbi database, StorePart part)
{
    unsigned char facts[NodeFacts::kHead] = {}; // a root has no parent and no name
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    std::memcpy(facts + sizeof(Node), &now, sizeof now);
    for (const RootRow& row : kRoots) {
        if (row.part != part) {
            continue;
        }
        RecordKey key(row.node, RecordKind::kFacts);
        MDB_val bytes = key.Bytes();
        MDB_val data = {sizeof facts, facts};
        if (const int result = mdb_put(transaction, database, &bytes, &data, 0)) {
            return result;
        }
    }
    return 0;
}

// MDB_NOTFOUND: an empty store.
int CheckSchema(MDB_txn* transaction, MDB_dbi database)
{
    RecordKey key(kStoreNode, RecordKind::kFacts);
    MDB_val bytes = key.Bytes();
    MDB_val data;
    StoreFacts facts;
    int result = mdb_get(transaction, database, &bytes, &data);
    if (result == 0) {
        return ReadStoreFacts(data, &facts) ? 0 : MDB_INVALID;
    }
    if (result != MDB_NOTFOUND) {
        return result;
    }
    MDB_stat stat = {};
    result = mdb_stat(transaction, database, &stat);
    return result != 0 ? result : stat.ms_entries == 0 ? MDB_NOTFOUND : MDB_INVALID;
}

int MakeSchema(MDB_env* environment, StorePart part)
{
    Transaction writing;
    MDB_dbi database = 0;
    int result = writing.Begin(environment, 0);
    if (result == 0) {
        result = mdb_dbi_open(writing.Get(), nullptr, 0, &database);
    }
    if (result == 0) {
        result = CheckSchema(writing.Get(), database); // another process may have been quicker
    }
    if (result != MDB_NOTFOUND) {
        return result;
    }
    StoreFacts facts = {kSchema, 0, kFirstFreeNode, 0};
    RecordKey key(kStoreNode, RecordKind::kFacts);
    MDB_val bytes = key.Bytes();
    MDB_val data = {sizeof facts, &facts};
    result = mdb_put(writing.Get(), database, &bytes, &data, 0);
    if (result == 0) {
        result = PutRoots(writing.Get(), database, part);
    }
    return result != 0 ? result : writing.Commit();
}

} // namespace

int FindSchema(MDB_env* environment, StorePart part, bool readOnly, MDB_dbi* database)
{
    int result;
    {
        Transaction reading;
        result = reading.Begin(environment, MDB_RDONLY);
        if (result == 0) {
            result = mdb_dbi_open(reading.Get(), nullptr, 0, database);
        }
        if (result == 0) {
            result = CheckSchema(reading.Get(), *database);
        }
    }
    if (result != MDB_NOTFOUND) {
        return result;
    }
    return readOnly ? ENOENT : MakeSchema(environment, part);
}

} // namespace qv::platform
