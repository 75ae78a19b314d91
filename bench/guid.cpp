// GUIDs as text, both ways.
#include "ratio.h"

#include <benchmark/benchmark.h>
#include <qvcore6/component.h>

#include <cstddef>
#include <string>
#include <vector>

#if QV_BENCH_HAS_UUID
#include <uuid.h>
#endif

namespace
{

constexpr std::size_t kGuids = 256;

const std::vector<GUID>& Guids()
{
    static const std::vector<GUID> guids = [] {
        std::vector<GUID> made(kGuids);
        for (GUID& guid : made) {
            QVComGenerateGUID(&guid);
        }
        return made;
    }();
    return guids;
}

// 36 digits and dashes each, without braces, as the peer wants them.
template <class Unit> const std::vector<std::basic_string<Unit>>& Texts()
{
    static const std::vector<std::basic_string<Unit>> texts = [] {
        std::vector<std::basic_string<Unit>> made;
        for (const GUID& guid : Guids()) {
            QVWChar text[QV_GUID_TEXT_UNITS];
            QVComStringFromGUID(&guid, text, QV_GUID_TEXT_UNITS);
            made.emplace_back(text + 1, text + 37);
        }
        return made;
    }();
    return texts;
}

void Parse(benchmark::State& state)
{
    const auto& texts = Texts<QVWChar>();
    std::size_t i = 0;
    for (auto _ : state) {
        GUID guid;
        benchmark::DoNotOptimize(QVComGUIDFromString(texts[i++ % kGuids].c_str(), &guid));
        benchmark::DoNotOptimize(guid);
    }
}
BENCHMARK(Parse)->Name("guid/parse/QVComGUIDFromString");

void Write(benchmark::State& state)
{
    std::size_t i = 0;
    for (auto _ : state) {
        QVWChar text[QV_GUID_TEXT_UNITS];
        QVComStringFromGUID(&Guids()[i++ % kGuids], text, QV_GUID_TEXT_UNITS);
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(Write)->Name("guid/write/QVComStringFromGUID");

#if QV_BENCH_HAS_UUID
void PeerParse(benchmark::State& state)
{
    const auto& texts = Texts<char>();
    std::size_t i = 0;
    for (auto _ : state) {
        uuid_t uuid;
        benchmark::DoNotOptimize(uuid_parse(texts[i++ % kGuids].c_str(), uuid));
        benchmark::DoNotOptimize(uuid);
    }
}
BENCHMARK(PeerParse)->Name("guid/parse/uuid_parse");

void PeerWrite(benchmark::State& state)
{
    std::size_t i = 0;
    for (auto _ : state) {
        char text[37];
        const auto* const bytes = reinterpret_cast<const unsigned char*>(&Guids()[i++ % kGuids]);
        uuid_unparse_upper(bytes, text);
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(PeerWrite)->Name("guid/write/uuid_unparse_upper");
#endif

const bool g_added = bench::AddGoals({
    {"GUID from text", "guid/parse/QVComGUIDFromString", "guid/parse/uuid_parse", 0.12},
    {"text from GUID", "guid/write/QVComStringFromGUID", "guid/write/uuid_unparse_upper", 1.0},
});

} // namespace
