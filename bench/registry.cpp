// The registry beside the same tree in SQLite: reads, reads beside a writer, durable writes, and
// enumeration.
//
// Reading is measured in memory (/dev/shm), where filling is quick; what depends on the disk lies
// in the user's part, on a real one.
#include "ratio.h"

#include <benchmark/benchmark.h>
#include <qvcore6/registry.h>

#if QV_BENCH_HAS_SQLITE
#include <sqlite3.h>
#endif
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <vector>

namespace
{

namespace fs = std::filesystem;

constexpr int kKeys = 10000;
constexpr int kManyValues = 100; // in each key of the large tree: 1,000,000 altogether
constexpr int kDiskKeys = 500;
constexpr std::size_t kDataSize = 40;

std::string MakeFolder(const char* parent)
{
    std::string path = std::string(parent) + "/qvcore6-bench-XXXXXX";
    return mkdtemp(path.data()) != nullptr ? path : std::string();
}

// The stores' folder on disk; its machine part lies in memory, where there is a folder for that.
class Folders
{
public:
    Folders() : m_disk(MakeFolder(fs::current_path().c_str())), m_memory(MakeFolder("/dev/shm"))
    {
        if (!m_memory.empty()) {
            fs::create_directory(m_memory + "/machine");
            fs::create_symlink(m_memory + "/machine", m_disk + "/machine");
        }
        setenv("QVCORE6_STATE_DIR", m_disk.c_str(), 1);
    }
    ~Folders()
    {
        std::error_code ignored;
        fs::remove_all(m_disk, ignored);
        if (!m_memory.empty()) {
            fs::remove_all(m_memory, ignored);
        }
    }
    Folders(const Folders&) = delete;
    Folders& operator=(const Folders&) = delete;

    const std::string& Disk() const { return m_disk; }
    const std::string& Memory() const { return m_memory.empty() ? m_disk : m_memory; }
    bool HasMemory() const { return !m_memory.empty(); }

private:
    std::string m_disk;
    std::string m_memory;
};

// Before the first call of the library: later the stores are open.
const Folders g_folders;

std::u16string Wide(const std::string& text)
{
    return {text.begin(), text.end()};
}

struct Place
{
    std::string names[4];
    std::u16string path;
    std::string value;
    std::u16string wideValue;
};

// Four components, 100 keys below each of 100 others.
Place MakePlace(const std::string& top, int key, int value)
{
    Place place{{top, "Vendor", "Product" + std::to_string(key / 100),
                 "Settings" + std::to_string(key % 100)},
                {},
                "Value" + std::to_string(value),
                {}};
    place.path = Wide(place.names[0] + "\\" + place.names[1] + "\\" + place.names[2] + "\\" +
                      place.names[3]);
    place.wideValue = Wide(place.value);
    return place;
}

struct Tree
{
    const char* top;
    int keys;
    int values;
};

constexpr Tree kSmall = {"Software", kKeys, 1};
constexpr Tree kLarge = {"System", kKeys, kManyValues};
constexpr Tree kOnDisk = {"Disk", kDiskKeys, 1};

// In an order that no cache of a few entries follows.
std::vector<Place> RandomPlaces(const Tree& tree, std::size_t count)
{
    std::mt19937 random(1);
    std::uniform_int_distribution<int> key(0, tree.keys - 1);
    std::uniform_int_distribution<int> value(0, tree.values - 1);
    std::vector<Place> places;
    for (std::size_t i = 0; i < count; ++i) {
        places.push_back(MakePlace(tree.top, key(random), value(random)));
    }
    return places;
}

std::uint32_t RootOf(const Tree& tree)
{
    return &tree == &kOnDisk ? QV_HKEY_USER : QV_HKEY_CONFIG;
}

bool FillOurs(const Tree& tree)
{
    const char data[kDataSize] = "forty bytes of a value that one reads";
    for (int key = 0; key < tree.keys; ++key) {
        for (int value = 0; value < tree.values; ++value) {
            const Place place = MakePlace(tree.top, key, value);
            if (QVRegistrySetValue(RootOf(tree), place.path.c_str(), place.wideValue.c_str(),
                                   QV_REGTYPE_BINARY, data, sizeof data) < 0) {
                return false;
            }
        }
    }
    return true;
}

bool OursHas(const Tree& tree)
{
    static std::vector<const Tree*> filled;
    for (const Tree* one : filled) {
        if (one == &tree) {
            return true;
        }
    }
    if (&tree == &kLarge && !g_folders.HasMemory()) {
        return false; // a million synced writes would take minutes
    }
    filled.push_back(&tree);
    return FillOurs(tree);
}

bool GetOurs(const Tree& tree, const Place& place)
{
    char data[64];
    std::uint32_t type;
    std::uint32_t size = sizeof data;
    const QVRESULT result = QVRegistryGetValue(RootOf(tree), place.path.c_str(),
                                               place.wideValue.c_str(), &type, data, &size);
    benchmark::DoNotOptimize(data);
    return result == S_OK && size == kDataSize;
}

void Random(benchmark::State& state, const Tree& tree)
{
    if (!OursHas(tree)) {
        state.SkipWithError("cannot be filled");
        return;
    }
    const std::vector<Place> places = RandomPlaces(tree, 16384);
    std::size_t next = 0;
    for (auto _ : state) {
        if (!GetOurs(tree, places[next++ % places.size()])) {
            state.SkipWithError("a value is missing");
        }
    }
}

void Same(benchmark::State& state, const Tree& tree)
{
    if (!OursHas(tree)) {
        state.SkipWithError("cannot be filled");
        return;
    }
    const Place place = MakePlace(tree.top, tree.keys / 2, tree.values / 2);
    for (auto _ : state) {
        if (!GetOurs(tree, place)) {
            state.SkipWithError("a value is missing");
        }
    }
}

using WriteFunction = bool (*)(const Place&, const void* data, std::size_t size);

bool SetOurs(const Place& place, const void* data, std::size_t size)
{
    return QVRegistrySetValue(RootOf(kOnDisk), place.path.c_str(), u"Written", QV_REGTYPE_BINARY,
                              data, static_cast<std::uint32_t>(size)) >= 0;
}

// Another process that writes without pause, until the end of the scope.
class Writer
{
public:
    explicit Writer(WriteFunction write)
        : m_writes(static_cast<std::atomic<long>*>(mmap(nullptr, sizeof(std::atomic<long>),
                                                        PROT_READ | PROT_WRITE,
                                                        MAP_SHARED | MAP_ANONYMOUS, -1, 0)))
    {
        new (m_writes) std::atomic<long>(0);
        m_process = fork();
        if (m_process == 0) {
            Run(write);
        }
        while (m_writes->load() < 3 && waitpid(m_process, nullptr, WNOHANG) == 0) {
            usleep(1000);
        }
    }
    ~Writer()
    {
        if (m_process > 0) { // kill() takes -1 for every process
            kill(m_process, SIGKILL);
            waitpid(m_process, nullptr, 0);
        }
        munmap(m_writes, sizeof *m_writes);
    }
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

private:
    [[noreturn]] void Run(WriteFunction write)
    {
        const char data[kDataSize] = "another forty bytes for another value";
        for (int i = 0; write(MakePlace(kOnDisk.top, i % kOnDisk.keys, 0), data, sizeof data);
             ++i) {
            ++*m_writes;
        }
        _exit(1);
    }

    std::atomic<long>* m_writes;
    pid_t m_process = -1;
};

void BesideWriter(benchmark::State& state, void (*read)(benchmark::State&, const Tree&),
                  WriteFunction write)
{
    if (!OursHas(kOnDisk)) {
        state.SkipWithError("cannot be filled");
        return;
    }
    const Writer writer(write);
    read(state, kOnDisk);
}

void Set(benchmark::State& state)
{
    if (!OursHas(kOnDisk)) {
        state.SkipWithError("cannot be filled");
        return;
    }
    const std::vector<Place> places = RandomPlaces(kOnDisk, 1024);
    char data[kDataSize] = {};
    std::size_t next = 0;
    for (auto _ : state) {
        const Place& place = places[next++ % places.size()];
        std::memcpy(data, &next, sizeof next);
        if (QVRegistrySetValue(QV_HKEY_USER, place.path.c_str(), place.wideValue.c_str(),
                               QV_REGTYPE_BINARY, data, sizeof data) < 0) {
            state.SkipWithError("cannot be written");
        }
    }
}

std::string SubKeyName(int i)
{
    return "A sub-key with a name, " + std::to_string(i);
}

void Enumerate(benchmark::State& state)
{
    static const bool filled = [] {
        for (int i = 0; i < kKeys; ++i) {
            if (QVRegistrySetValue(QV_HKEY_CONFIG, Wide("Wide\\" + SubKeyName(i)).c_str(), u"",
                                   QV_REGTYPE_DWORD, &i, sizeof i) < 0) {
                return false;
            }
        }
        return true;
    }();
    for (auto _ : state) {
        QVRegEnum keys = QV_REG_ENUM_NONE;
        QVWChar name[256];
        std::uint32_t size = 256;
        int count = 0;
        QVRegistryOpenKeyEnum(QV_HKEY_CONFIG, u"Wide", &keys);
        while (QVRegistryEnumNextKey(keys, name, &size) == S_OK) {
            benchmark::DoNotOptimize(name);
            size = 256;
            ++count;
        }
        QVRegistryCloseEnum(keys);
        if (!filled || count != kKeys) {
            state.SkipWithError("not all sub-keys came");
        }
    }
}

#if QV_BENCH_HAS_SQLITE

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

void FillPeer(Database& database, const Tree& tree)
{
    const char data[kDataSize] = "forty bytes of a value that one reads";
    database.BeginWriting();
    for (int key = 0; key < tree.keys; ++key) {
        const Place place = MakePlace(tree.top, key, 0);
        std::int64_t node = 1;
        for (const std::string& name : place.names) {
            node = database.Make(node, name);
        }
        for (int value = 0; value < tree.values; ++value) {
            database.SetIn(node, "Value" + std::to_string(value), data, sizeof data);
        }
    }
    database.Commit();
}

Database& PeerWith(const Tree& tree)
{
    static const std::string folder = g_folders.Memory();
    if (&tree == &kLarge) {
        static Database large(folder + "/large.db", "NORMAL");
        static const bool filled = (FillPeer(large, kLarge), true);
        benchmark::DoNotOptimize(filled);
        return large;
    }
    static Database small(folder + "/small.db", "NORMAL");
    static const bool filled = (FillPeer(small, kSmall), true);
    benchmark::DoNotOptimize(filled);
    return small;
}

void RandomPeer(benchmark::State& state, const Tree& tree)
{
    Database& database = PeerWith(tree);
    const std::vector<Place> places = RandomPlaces(tree, 16384);
    std::size_t next = 0;
    for (auto _ : state) {
        if (!database.Get(places[next++ % places.size()])) {
            state.SkipWithError("a value is missing");
        }
    }
}

void SamePeer(benchmark::State& state, const Tree& tree)
{
    Database& database = PeerWith(tree);
    const Place place = MakePlace(tree.top, tree.keys / 2, tree.values / 2);
    for (auto _ : state) {
        if (!database.Get(place)) {
            state.SkipWithError("a value is missing");
        }
    }
}

void SetPeer(benchmark::State& state, const char* synchronous)
{
    Database database(g_folders.Disk() + "/" + synchronous + ".db", synchronous);
    FillPeer(database, kOnDisk);
    const std::vector<Place> places = RandomPlaces(kOnDisk, 1024);
    char data[kDataSize] = {};
    std::size_t next = 0;
    for (auto _ : state) {
        std::memcpy(data, &next, sizeof next);
        if (!database.Set(places[next++ % places.size()], data, sizeof data)) {
            state.SkipWithError("cannot be written");
        }
    }
}

// A process as busy as a writer of ours, with a file of its own: what two of them cost each other
// on this machine, whatever they share.
bool SetElsewhere(const Place& place, const void* data, std::size_t size)
{
    static Database* const database = [] {
        auto* const made = new Database(g_folders.Disk() + "/elsewhere.db", "FULL");
        FillPeer(*made, kOnDisk);
        return made;
    }();
    return database->Set(place, data, size);
}

void EnumeratePeer(benchmark::State& state)
{
    Database& database = PeerWith(kSmall);
    static const std::int64_t wide = [&database] {
        database.BeginWriting();
        const std::int64_t node = database.Make(1, "Wide");
        for (int i = 0; i < kKeys; ++i) {
            database.Make(node, SubKeyName(i));
        }
        database.Commit();
        return node;
    }();
    for (auto _ : state) {
        if (database.List(wide) != kKeys) {
            state.SkipWithError("not all sub-keys came");
        }
    }
}

#endif

bool AddAll()
{
    const struct
    {
        const char* name;
        const Tree* tree;
    } trees[] = {{"small", &kSmall}, {"large", &kLarge}};
    for (const auto& row : trees) {
        const std::string name = row.name;
        const Tree& tree = *row.tree;
        benchmark::RegisterBenchmark(("registry/random/" + name).c_str(),
                                     [&tree](benchmark::State& state) { Random(state, tree); });
        benchmark::RegisterBenchmark(("registry/same/" + name).c_str(),
                                     [&tree](benchmark::State& state) { Same(state, tree); });
#if QV_BENCH_HAS_SQLITE
        benchmark::RegisterBenchmark(("registry/random/" + name + "/SQLite").c_str(),
                                     [&tree](benchmark::State& state) { RandomPeer(state, tree); });
        benchmark::RegisterBenchmark(("registry/same/" + name + "/SQLite").c_str(),
                                     [&tree](benchmark::State& state) { SamePeer(state, tree); });
#endif
    }
    const struct
    {
        const char* name;
        void (*read)(benchmark::State&, const Tree&);
    } readers[] = {{"random", &Random}, {"same", &Same}};
    for (const auto& row : readers) {
        const std::string name = std::string("registry/") + row.name;
        const auto read = row.read;
        benchmark::RegisterBenchmark((name + "/quiet").c_str(),
                                     [read](benchmark::State& state) { read(state, kOnDisk); });
        benchmark::RegisterBenchmark((name + "/writer").c_str(), [read](benchmark::State& state) {
            BesideWriter(state, read, &SetOurs);
        });
#if QV_BENCH_HAS_SQLITE
        benchmark::RegisterBenchmark((name + "/busy").c_str(), [read](benchmark::State& state) {
            BesideWriter(state, read, &SetElsewhere);
        });
#endif
    }
    benchmark::RegisterBenchmark("registry/set", &Set);
    benchmark::RegisterBenchmark("registry/enumerate", &Enumerate);
#if QV_BENCH_HAS_SQLITE
    for (const char* const synchronous : {"NORMAL", "FULL"}) {
        benchmark::RegisterBenchmark(
            ("registry/set/SQLite-" + std::string(synchronous)).c_str(),
            [synchronous](benchmark::State& state) { SetPeer(state, synchronous); });
    }
    benchmark::RegisterBenchmark("registry/enumerate/SQLite", &EnumeratePeer);
#endif
    return true;
}

const bool g_registered = AddAll();

const bool g_added = bench::AddGoals({
    {"registry, get at random", "registry/random/small", "registry/random/small/SQLite", 0.3},
    {"registry, get the same", "registry/same/small", "registry/same/small/SQLite", 0.07},
    {"registry, get at random, 1M values", "registry/random/large", "registry/random/large/SQLite",
     0.4},
    {"registry, get the same, 1M values", "registry/same/large", "registry/same/large/SQLite", 0.2},
    {"registry, get at random, with writer", "registry/random/writer", "registry/random/quiet",
     1.25},
    {"registry, get the same, with writer", "registry/same/writer", "registry/same/quiet", 1.25},
    {"registry, get at random, with writer", "registry/random/writer", "registry/random/busy", 0},
    {"registry, get the same, with writer", "registry/same/writer", "registry/same/busy", 0},
    {"registry, set, durable", "registry/set", "registry/set/SQLite-FULL", 1.0},
    {"registry, set, durable", "registry/set", "registry/set/SQLite-NORMAL", 0},
    {"registry, 10,000 sub-keys", "registry/enumerate", "registry/enumerate/SQLite", 0.7},
});

} // namespace
