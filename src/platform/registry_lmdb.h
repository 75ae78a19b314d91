// Owners of LMDB's objects. What a failed opening leaves is given back too.
#pragma once

#include <lmdb.h>

#include <cstddef>

#include "platform/types.h"

namespace qv::platform
{

// The error number of what LMDB answered.
DWORD ErrorFromStore(int result);

class Environment
{
public:
    // A promise of address space, not of disk. The same in all processes, or they would have to
    // follow each other's resizing. Programs of different width cannot share a file anyway.
    static constexpr std::size_t kMapSize =
        static_cast<std::size_t>(sizeof(void*) >= 8 ? 1024 : 256) << 20;

    Environment() = default;
    ~Environment() { Close(); }
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;

    int Open(const char* path, unsigned flags, mdb_mode_t mode);
    MDB_env* Get() const { return m_environment; }
    MDB_env* Release();

private:
    void Close();

    MDB_env* m_environment = nullptr;
};

class Transaction
{
public:
    Transaction() = default;
    ~Transaction()
    {
        if (m_transaction != nullptr) {
            mdb_txn_abort(m_transaction);
        }
    }
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    int Begin(MDB_env* environment, unsigned flags)
    {
        return mdb_txn_begin(environment, nullptr, flags, &m_transaction);
    }

    int Commit()
    {
        MDB_txn* const transaction = m_transaction;
        m_transaction = nullptr;
        return mdb_txn_commit(transaction);
    }

    MDB_txn* Get() const { return m_transaction; }

private:
    MDB_txn* m_transaction = nullptr;
};

class Cursor
{
public:
    Cursor(MDB_txn* transaction, MDB_dbi database)
        : m_error(mdb_cursor_open(transaction, database, &m_cursor))
    {}
    ~Cursor()
    {
        if (m_error == 0) {
            mdb_cursor_close(m_cursor);
        }
    }
    Cursor(const Cursor&) = delete;
    Cursor& operator=(const Cursor&) = delete;

    int Move(MDB_val* key, MDB_val* data, MDB_cursor_op move)
    {
        return m_error != 0 ? m_error : mdb_cursor_get(m_cursor, key, data, move);
    }

    int Delete() { return m_error != 0 ? m_error : mdb_cursor_del(m_cursor, 0); }

private:
    MDB_cursor* m_cursor = nullptr;
    int m_error;
};

} // namespace qv::platform
