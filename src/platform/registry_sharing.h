// The open stores of this process, and transactions on them.
//
// A file has one environment in a process, opened at the first call and kept: LMDB's locks belong
// to the process, and closing a second environment would drop those of the first. After a fork the
// child finds no store and no lock here, as all of that lies in memory that the kernel clears for
// it. It leaves the inherited environments alone, never closing them, and opens its own.
#pragma once

#include <lmdb.h>

#include <array>
#include <atomic>
#include <optional>
#include <string>

#include "platform/no_cancellation.h"
#include "platform/registry_locations.h"
#include "platform/registry_path_cache.h"
#include "platform/registry_records.h"
#include "platform/registry_turns.h"
#include "platform/types.h"

namespace qv::platform
{

// A read transaction that is renewed for each call, with what it knows from the last one.
struct alignas(64) Reader
{
    std::atomic<std::uint32_t> taken{0};
    MDB_txn* transaction = nullptr;
    MDB_cursor* cursor = nullptr;
    PathCache* cache = nullptr;
    std::size_t seen = 0; // number of the transaction at which deletions was read
    std::uint64_t deletions = 0;
};

struct Store
{
    MDB_env* environment = nullptr;
    MDB_dbi database = 0;
    bool readOnly = false;
    std::string folder;
    Store* inherited = nullptr; // of the parent process; only its folder is of use
    TurnLocks turns;
    std::atomic<std::uint32_t> commits{0};
    std::array<Reader, 32> readers;

    // The number of the last commit of any process.
    std::size_t LastCommit() const;
};

// 3: there is no store, and this user may not make one.
DWORD FindStore(StorePart part, Store** store);

// One state of the store, for the length of a call.
class ReadView
{
public:
    ReadView() = default;
    ~ReadView();
    ReadView(const ReadView&) = delete;
    ReadView& operator=(const ReadView&) = delete;

    // No store reads like an empty one: 2.
    DWORD Begin(StorePart part);

    MDB_txn* Get() const { return m_transaction; }
    MDB_dbi Database() const { return m_store->database; }
    const Store& Of() const { return *m_store; }
    std::size_t Number() const { return m_number; }
    std::uint64_t Deletions() const { return m_deletions; }
    PathCache* Cache() const { return m_reader != nullptr ? m_reader->cache : nullptr; }

    // Valid until the view ends.
    int OpenCursor(MDB_cursor** cursor);

private:
    DWORD Renew(Reader& reader);
    DWORD BeginAlone();
    DWORD ReadDeletions();

    Store* m_store = nullptr;
    Reader* m_reader = nullptr; // null: all were taken, and the transaction is this call's own
    MDB_txn* m_transaction = nullptr;
    MDB_cursor* m_cursor = nullptr; // own
    std::size_t m_number = 0;
    std::uint64_t m_deletions = 0;
};

// A change. What is not committed never happened.
class WriteTransaction
{
public:
    WriteTransaction() = default;
    ~WriteTransaction();
    WriteTransaction(const WriteTransaction&) = delete;
    WriteTransaction& operator=(const WriteTransaction&) = delete;

    // A store that is missing or may only be read: 5.
    DWORD Begin(StorePart part);
    DWORD Commit();

    MDB_txn* Get() const { return m_transaction; }
    MDB_dbi Database() const { return m_store->database; }

private:
    NoCancellation m_noCancellation; // LMDB's lock and its books are the process's
    std::optional<Turn> m_turn;
    Store* m_store = nullptr;
    MDB_txn* m_transaction = nullptr;
};

// Gives back what killed readers keep from being used again. True if there were any.
bool DropDeadReaders(Store& store);
bool DropDeadReaders(StorePart part);

// Runs body(transaction), which returns an error number, and commits. Pages that killed readers
// held on to are given back and the change tried once more before the store counts as full.
template <class Body> DWORD Change(StorePart part, Body&& body)
{
    for (bool again = false;; again = true) {
        DWORD error;
        {
            WriteTransaction transaction;
            error = transaction.Begin(part);
            if (error == ERROR_SUCCESS) {
                error = body(transaction);
            }
            if (error == ERROR_SUCCESS) {
                error = transaction.Commit();
            }
        }
        if (error != ERROR_NO_SYSTEM_RESOURCES || again || !DropDeadReaders(part)) {
            return error;
        }
    }
}

} // namespace qv::platform
