// The registry: reads, reads beside a writer, durable writes, and enumeration.
//
// Reading is measured in memory (/dev/shm), where filling is quick; what depends on the disk lies
// in the user's part, on a real one.
#include "registry_bench.h"

#include <qvcore6/registry.h>

#include <cstring>
#include <set>

#include "pin.h"
#include "ratio.h"

namespace bench
{

namespace
{

std::uint32_t RootOf(const Tree& tree)
{
    return tree.onDisk ? QV_HKEY_USER : QV_HKEY_CONFIG;
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
    static std::set<std::string> filled;
    if (tree.values > 1 && !TheFolders().HasMemory()) {
        return false; // a million synced writes would take minutes
    }
    return !filled.insert(tree.top).second || FillOurs(tree);
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

} // namespace

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

// What a busy neighbour costs whoever runs here, whatever he does: a search in memory that nobody
// else touches, about as long as a read.
void Loop(benchmark::State& state, const Tree& tree)
{
    const std::vector<Place> places = RandomPlaces(tree, 1024);
    std::size_t next = 0;
    for (auto _ : state) {
        std::size_t equal = 0;
        for (std::size_t i = 0; i < 64; ++i) {
            equal += places[next % 1024].path == places[(next + i * 7) % 1024].path ? 1 : 0;
        }
        benchmark::DoNotOptimize(equal);
        ++next;
    }
}

// On the processor that a writer leaves free.
void Alone(benchmark::State& state, ReadFunction read)
{
    const Pinned pinned(1);
    read(state, kOnDisk);
}

void BesideWriter(benchmark::State& state, void (*read)(benchmark::State&, const Tree&),
                  WriteFunction write)
{
    if (!OursHas(kOnDisk)) {
        state.SkipWithError("cannot be filled");
        return;
    }
    const Writer writer(write);
    Alone(state, read);
}

namespace
{

bool SetOurs(const Place& place, const void* data, std::size_t size)
{
    return QVRegistrySetValue(RootOf(kOnDisk), place.path.c_str(), u"Written", QV_REGTYPE_BINARY,
                              data, static_cast<std::uint32_t>(size)) >= 0;
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

bool AddAll()
{
    TheFolders();
    const struct
    {
        const char* name;
        const Tree* tree;
    } trees[] = {{"small", &kSmall}, {"large", &kLarge}};
    const struct
    {
        const char* name;
        ReadFunction read;
    } reads[] = {{"random", &Random}, {"same", &Same}, {"loop", &Loop}};
    for (const auto& row : reads) {
        const std::string name = std::string("registry/") + row.name + "/";
        for (const auto& [place, tree] : trees) {
            if (row.read != &Loop) {
                benchmark::RegisterBenchmark((name + place).c_str(), row.read, *tree);
            }
        }
        benchmark::RegisterBenchmark((name + "quiet").c_str(), &Alone, row.read);
        benchmark::RegisterBenchmark((name + "writer").c_str(), &BesideWriter, row.read, &SetOurs);
    }
    benchmark::RegisterBenchmark("registry/set", &Set);
    benchmark::RegisterBenchmark("registry/enumerate", &Enumerate);
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
    {"no registry, with writer", "registry/loop/writer", "registry/loop/quiet", 0},
    {"registry, get at random, with writer", "registry/random/writer", "registry/random/busy", 0},
    {"registry, get the same, with writer", "registry/same/writer", "registry/same/busy", 0},
    {"registry, set, durable", "registry/set", "registry/set/SQLite-FULL", 1.0},
    {"registry, set, durable", "registry/set", "registry/set/SQLite-NORMAL", 0},
    {"registry, 10,000 sub-keys", "registry/enumerate", "registry/enumerate/SQLite", 0.7},
});

} // namespace

} // namespace bench
