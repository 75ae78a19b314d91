// Look-ups of cached classes, beside the plainest cache that a program would write for itself.
#include "ratio.h"

#include <benchmark/benchmark.h>
#include <qvcore6/component.h>
#include <qvcore6/registry.h>
#include <qvcore6/result.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <vector>

namespace
{

constexpr std::size_t kMostClasses = 1000;
constexpr std::size_t kSequence = 4096;

std::vector<GUID> MakeClasses()
{
    std::vector<GUID> classes(kMostClasses);
    for (GUID& clsid : classes) {
        QVComGenerateGUID(&clsid);
    }
    return classes;
}

const std::vector<GUID>& Classes()
{
    static const std::vector<GUID> classes = MakeClasses();
    return classes;
}

// Which class is asked for, in an order that no predictor learns.
std::vector<std::size_t> Sequence(std::size_t count)
{
    std::mt19937 random(5);
    std::vector<std::size_t> sequence(kSequence);
    for (std::size_t& index : sequence) {
        index = random() % count;
    }
    return sequence;
}

void Register(const GUID& clsid)
{
    QVWChar text[QV_GUID_TEXT_UNITS];
    QVComStringFromGUID(&clsid, text, QV_GUID_TEXT_UNITS);
    const std::u16string key = u"CLSID\\" + std::u16string(text) + u"\\InprocServer32";
    const std::u16string path = std::filesystem::path(QV_BENCH_COMPONENT).u16string();
    QVRegistrySetValue(QV_HKEY_CLASSES, key.c_str(), u"", QV_REGTYPE_STRING, path.c_str(),
                       static_cast<uint32_t>((path.size() + 1) * sizeof(QVWChar)));
}

// Just the first classes cached. The store is in a folder that registry.cpp chooses at start.
bool FillCache(std::size_t count)
{
    static std::size_t registered = 0;
    static std::size_t cached = 0;
    if (cached == count) {
        return true;
    }
    for (; registered < count; ++registered) {
        Register(Classes()[registered]);
    }
    QVComFlushFactoryCache();
    for (cached = 0; cached < count; ++cached) {
        void* object = nullptr;
        if (QVComGetClassObject(&Classes()[cached], &QV_IID_UNKNOWN, &object) < 0) {
            return false;
        }
    }
    return true;
}

void Ours(benchmark::State& state)
{
    const auto count = static_cast<std::size_t>(state.range(0));
    if (!FillCache(count)) {
        state.SkipWithError("the classes could not be loaded");
        return;
    }
    const std::vector<std::size_t> sequence = Sequence(count);
    std::size_t i = 0;
    for (auto _ : state) {
        void* object = nullptr;
        QVComGetClassObject(&Classes()[sequence[i++ % kSequence]], &QV_IID_UNKNOWN, &object);
        benchmark::DoNotOptimize(object);
    }
}
BENCHMARK(Ours)->Name("class/QVComGetClassObject")->Arg(10)->Arg(1000);

struct ByBytes
{
    bool operator()(const GUID& a, const GUID& b) const
    {
        return std::memcmp(&a, &b, sizeof a) < 0;
    }
};

void Peer(benchmark::State& state)
{
    const auto count = static_cast<std::size_t>(state.range(0));
    // The same class object, so that the indirect call is the same.
    if (!FillCache(count)) {
        state.SkipWithError("the class could not be loaded");
        return;
    }
    void* object = nullptr;
    QVComGetClassObject(&Classes()[0], &QV_IID_UNKNOWN, &object);
    std::map<GUID, IQVUnknown*, ByBytes> cache;
    for (std::size_t i = 0; i < count; ++i) {
        cache.emplace(Classes()[i], static_cast<IQVUnknown*>(object));
    }
    std::recursive_mutex mutex;
    const std::vector<std::size_t> sequence = Sequence(count);
    std::size_t i = 0;
    for (auto _ : state) {
        const std::lock_guard<std::recursive_mutex> lock(mutex);
        const auto found = cache.find(Classes()[sequence[i++ % kSequence]]);
        if (found != cache.end()) {
            found->second->QueryInterface(&QV_IID_UNKNOWN, &object);
        }
        benchmark::DoNotOptimize(object);
    }
}
BENCHMARK(Peer)->Name("class/std::map")->Arg(10)->Arg(1000);

const bool g_added = bench::AddGoals({
    {"cached class, 10", "class/QVComGetClassObject/10", "class/std::map/10", 0.8},
    {"cached class, 1,000", "class/QVComGetClassObject/1000", "class/std::map/1000", 0.8},
});

} // namespace
