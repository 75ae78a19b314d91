// The registry's tree in SQLite, with a prepared statement for everything.
#pragma once

#include "registry_tree.h"

#include <sqlite3.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include <benchmark/benchmark.h>

namespace bench
{

class Statement
{
public:
    Statement(sqlite3* database, const char* text)
    {
        sqlite3_prepare_v3(database, text, -1, SQLITE_PREPARE_PERSISTENT, &m_statement, nullptr);
    }
    ~Statement() { sqlite3_finalize(m_statement); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    void Bind(int index, std::int64_t number) { sqlite3_bind_int64(m_statement, index, number); }
    void Bind(int index, const std::string& text)
    {
        sqlite3_bind_text(m_statement, index, text.data(), static_cast<int>(text.size()),
                          SQLITE_STATIC);
    }
    void Bind(int index, const void* data, std::size_t size)
    {
        sqlite3_bind_blob(m_statement, index, data, static_cast<int>(size), SQLITE_STATIC);
    }
    int Step() { return sqlite3_step(m_statement); }
    void Reset() { sqlite3_reset(m_statement); }
    // A statement without rows, from its start to its end.
    bool Run()
    {
        const int result = Step();
        Reset();
        return result == SQLITE_DONE;
    }
    sqlite3_stmt* Get() { return m_statement; }

private:
    sqlite3_stmt* m_statement = nullptr;
};

class Database
{
public:
    Database(const std::string& path, const char* synchronous)
        : m_connection(Open(path, synchronous)), m_begin(m_connection.get(), "BEGIN"),
          m_beginWriting(m_connection.get(), "BEGIN IMMEDIATE"),
          m_commit(m_connection.get(), "COMMIT"),
          m_child(m_connection.get(), "SELECT id FROM nodes WHERE parent=?1 AND name=?2"),
          m_get(m_connection.get(), "SELECT type,data FROM \"values\" WHERE node=?1 AND name=?2"),
          m_addNode(m_connection.get(), "INSERT INTO nodes(parent,name) VALUES(?1,?2)"),
          m_set(m_connection.get(), "INSERT OR REPLACE INTO \"values\" VALUES(?1,?2,3,?3)"),
          m_list(m_connection.get(), "SELECT name FROM nodes WHERE parent=?1 ORDER BY name")
    {}

    void Begin() { m_begin.Run(); }
    bool BeginWriting() { return m_beginWriting.Run(); }
    bool Commit() { return m_commit.Run(); }

    // 0: there is none.
    std::int64_t Child(std::int64_t parent, const std::string& name)
    {
        m_child.Bind(1, parent);
        m_child.Bind(2, name);
        const std::int64_t child =
            m_child.Step() == SQLITE_ROW ? sqlite3_column_int64(m_child.Get(), 0) : 0;
        m_child.Reset();
        return child;
    }

    std::int64_t Find(const Place& place)
    {
        std::int64_t node = 1;
        for (const std::string& name : place.names) {
            node = Child(node, name);
        }
        return node;
    }

    std::int64_t Make(std::int64_t parent, const std::string& name)
    {
        if (const std::int64_t child = Child(parent, name)) {
            return child;
        }
        m_addNode.Bind(1, parent);
        m_addNode.Bind(2, name);
        m_addNode.Run();
        return sqlite3_last_insert_rowid(m_connection.get());
    }

    bool SetIn(std::int64_t node, const std::string& name, const void* data, std::size_t size)
    {
        m_set.Bind(1, node);
        m_set.Bind(2, name);
        m_set.Bind(3, data, size);
        return m_set.Run();
    }

    bool Get(const Place& place)
    {
        Begin();
        const std::int64_t node = Find(place);
        char data[64];
        int size = 0;
        m_get.Bind(1, node);
        m_get.Bind(2, place.value);
        if (m_get.Step() == SQLITE_ROW) {
            benchmark::DoNotOptimize(sqlite3_column_int(m_get.Get(), 0));
            size = sqlite3_column_bytes(m_get.Get(), 1);
            std::memcpy(data, sqlite3_column_blob(m_get.Get(), 1), kDataSize);
        }
        m_get.Reset();
        Commit();
        benchmark::DoNotOptimize(data);
        return size == static_cast<int>(kDataSize);
    }

    bool Set(const Place& place, const void* data, std::size_t size)
    {
        return BeginWriting() && SetIn(Find(place), place.value, data, size) && Commit();
    }

    int List(std::int64_t parent)
    {
        char name[256];
        int count = 0;
        m_list.Bind(1, parent);
        for (; m_list.Step() == SQLITE_ROW; ++count) {
            const auto size = static_cast<std::size_t>(sqlite3_column_bytes(m_list.Get(), 0));
            std::memcpy(name, sqlite3_column_text(m_list.Get(), 0), size + 1);
            benchmark::DoNotOptimize(name);
        }
        m_list.Reset();
        return count;
    }

private:
    using Connection = std::unique_ptr<sqlite3, int (*)(sqlite3*)>;

    static Connection Open(const std::string& path, const char* synchronous)
    {
        sqlite3* connection = nullptr;
        sqlite3_open_v2(path.c_str(), &connection,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
        const std::string setup =
            "PRAGMA journal_mode=WAL; PRAGMA mmap_size=1073741824; PRAGMA cache_size=-65536;"
            "PRAGMA synchronous=" +
            std::string(synchronous) +
            ";"
            "CREATE TABLE IF NOT EXISTS nodes(id INTEGER PRIMARY KEY, parent INTEGER NOT NULL,"
            " name TEXT NOT NULL COLLATE NOCASE, UNIQUE(parent, name));"
            "CREATE TABLE IF NOT EXISTS \"values\"(node INTEGER NOT NULL,"
            " name TEXT NOT NULL COLLATE NOCASE, type INTEGER, data BLOB,"
            " PRIMARY KEY(node, name)) WITHOUT ROWID;"
            "INSERT OR IGNORE INTO nodes VALUES(1, 0, '');";
        sqlite3_exec(connection, setup.c_str(), nullptr, nullptr, nullptr);
        return {connection, &sqlite3_close};
    }

    Connection m_connection;
    Statement m_begin;
    Statement m_beginWriting;
    Statement m_commit;
    Statement m_child;
    Statement m_get;
    Statement m_addNode;
    Statement m_set;
    Statement m_list;
};

} // namespace bench
