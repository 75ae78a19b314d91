// The registry's benchmarks on its peer.
#include "registry_sqlite.h"

#include "registry_bench.h"

namespace bench
{

namespace
{

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
    static const std::string folder = TheFolders().Memory();
    if (tree.values > 1) {
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
    Database database(TheFolders().Disk() + "/" + synchronous + ".db", synchronous);
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
        auto* const made = new Database(TheFolders().Disk() + "/elsewhere.db", "FULL");
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

bool AddAll()
{
    const struct
    {
        const char* name;
        ReadFunction ours;
        ReadFunction peer;
    } reads[] = {{"random", &Random, &RandomPeer}, {"same", &Same, &SamePeer}};
    for (const auto& row : reads) {
        const std::string name = std::string("registry/") + row.name;
        benchmark::RegisterBenchmark((name + "/small/SQLite").c_str(), row.peer, kSmall);
        benchmark::RegisterBenchmark((name + "/large/SQLite").c_str(), row.peer, kLarge);
        benchmark::RegisterBenchmark((name + "/busy").c_str(), &BesideWriter, row.ours,
                                     &SetElsewhere);
    }
    for (const char* const synchronous : {"NORMAL", "FULL"}) {
        benchmark::RegisterBenchmark((std::string("registry/set/SQLite-") + synchronous).c_str(),
                                     &SetPeer, synchronous);
    }
    benchmark::RegisterBenchmark("registry/enumerate/SQLite", &EnumeratePeer);
    return true;
}

const bool g_registered = AddAll();

} // namespace

} // namespace bench
