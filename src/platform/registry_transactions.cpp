#include "platform/registry_lmdb.h"
#include "platform/registry_sharing.h"

namespace qv::platform
{

namespace
{

// Killed readers hold on to old pages until somebody looks for them.
constexpr std::uint32_t kCommitsBetweenChecks = 256;

// The reader that this thread had last; just a hint.
[[gnu::tls_model("initial-exec")]] constinit thread_local std::size_t t_lastReader = 0;

bool Take(Reader& reader)
{
    return reader.taken.load(std::memory_order_relaxed) == 0 &&
           reader.taken.exchange(1, std::memory_order_acquire) == 0;
}

// The first free ones are taken, so that a process has no more of them than it ever used at once.
Reader* TakeReader(Store& store)
{
    if (Take(store.readers[t_lastReader])) {
        return &store.readers[t_lastReader];
    }
    for (std::size_t i = 0; i < store.readers.size(); ++i) {
        if (Take(store.readers[i])) {
            t_lastReader = i;
            return &store.readers[i];
        }
    }
    return nullptr;
}

int BeginReading(Store& store, MDB_txn** transaction)
{
    for (bool again = false;; again = true) {
        int result;
        {
            const NoCancellation noCancellation;
            const Turn turn(store.turns, TurnKind::kRegistering);
            result = mdb_txn_begin(store.environment, nullptr, MDB_RDONLY, transaction);
        }
        if (result != MDB_READERS_FULL || again || !DropDeadReaders(store)) {
            return result;
        }
    }
}

} // namespace

ReadView::~ReadView()
{
    if (m_cursor != nullptr) {
        mdb_cursor_close(m_cursor);
    }
    if (m_reader == nullptr) {
        if (m_transaction != nullptr) {
            mdb_txn_abort(m_transaction);
        }
        return;
    }
    if (m_transaction != nullptr) {
        mdb_txn_reset(m_transaction);
    }
    m_reader->taken.store(0, std::memory_order_release);
}

DWORD ReadView::Begin(StorePart part)
{
    if (const DWORD error = FindStore(part, &m_store)) {
        return error == ERROR_PATH_NOT_FOUND ? ERROR_FILE_NOT_FOUND : error;
    }
    m_reader = TakeReader(*m_store);
    return m_reader != nullptr ? Renew(*m_reader) : BeginAlone();
}

DWORD ReadView::Renew(Reader& reader)
{
    const int result = reader.transaction != nullptr ? mdb_txn_renew(reader.transaction)
                                                     : BeginReading(*m_store, &reader.transaction);
    if (result != 0) {
        return ErrorFromStore(result);
    }
    m_transaction = reader.transaction;
    m_number = mdb_txn_id(m_transaction);
    if (reader.seen != m_number) {
        if (const DWORD error = ReadDeletions()) {
            return error;
        }
        reader.deletions = m_deletions;
        reader.seen = m_number;
        if (reader.cache == nullptr) {
            reader.cache = PathCache::Make();
        }
    }
    m_deletions = reader.deletions;
    return ERROR_SUCCESS;
}

// As many threads as there are readers have been stopped inside; waiting for them could be long.
DWORD ReadView::BeginAlone()
{
    if (const int result = BeginReading(*m_store, &m_transaction)) {
        m_transaction = nullptr;
        return ErrorFromStore(result);
    }
    m_number = mdb_txn_id(m_transaction);
    return ERROR_SUCCESS;
}

DWORD ReadView::ReadDeletions()
{
    RecordKey key(kStoreNode, RecordKind::kFacts);
    MDB_val bytes = key.Bytes();
    MDB_val data;
    StoreFacts facts;
    const int result = mdb_get(m_transaction, Database(), &bytes, &data);
    if (result != 0 || !ReadStoreFacts(data, &facts)) {
        return ErrorFromStore(result == 0 || result == MDB_NOTFOUND ? MDB_CORRUPTED : result);
    }
    m_deletions = facts.deletions;
    return ERROR_SUCCESS;
}

int ReadView::OpenCursor(MDB_cursor** cursor)
{
    int result;
    if (m_reader == nullptr) {
        result = mdb_cursor_open(m_transaction, Database(), &m_cursor);
        *cursor = m_cursor;
        return result;
    }
    result = m_reader->cursor != nullptr
                 ? mdb_cursor_renew(m_transaction, m_reader->cursor)
                 : mdb_cursor_open(m_transaction, Database(), &m_reader->cursor);
    *cursor = m_reader->cursor;
    return result;
}

bool DropDeadReaders(Store& store)
{
    const NoCancellation noCancellation;
    const Turn turn(store.turns, TurnKind::kRegistering);
    int dead = 0;
    return mdb_reader_check(store.environment, &dead) == 0 && dead > 0;
}

bool DropDeadReaders(StorePart part)
{
    Store* store = nullptr;
    return FindStore(part, &store) == ERROR_SUCCESS && DropDeadReaders(*store);
}

WriteTransaction::~WriteTransaction()
{
    if (m_transaction != nullptr) {
        mdb_txn_abort(m_transaction);
    }
}

DWORD WriteTransaction::Begin(StorePart part)
{
    if (const DWORD error = FindStore(part, &m_store)) {
        return error == ERROR_PATH_NOT_FOUND ? ERROR_ACCESS_DENIED : error;
    }
    if (m_store->readOnly) {
        return ERROR_ACCESS_DENIED;
    }
    m_turn.emplace(m_store->turns, TurnKind::kWriting);
    const int result = mdb_txn_begin(m_store->environment, nullptr, 0, &m_transaction);
    if (result != 0) {
        m_transaction = nullptr;
    }
    return ErrorFromStore(result);
}

DWORD WriteTransaction::Commit()
{
    MDB_txn* const transaction = m_transaction;
    m_transaction = nullptr;
    const int result = mdb_txn_commit(transaction);
    m_turn.reset();
    if (result != 0) {
        return ErrorFromStore(result);
    }
    if (m_store->commits.fetch_add(1, std::memory_order_relaxed) % kCommitsBetweenChecks ==
        kCommitsBetweenChecks - 1) {
        DropDeadReaders(*m_store);
    }
    return ERROR_SUCCESS;
}

} // namespace qv::platform
