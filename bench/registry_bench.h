// What the registry's benchmarks share with those of its peer.
#pragma once

#include <benchmark/benchmark.h>

#include "registry_tree.h"
#include "registry_writer.h"

namespace bench
{

using ReadFunction = void (*)(benchmark::State&, const Tree&);

// The library's reads, by themselves.
void Random(benchmark::State& state, const Tree& tree);
void Same(benchmark::State& state, const Tree& tree);

// The same on the disk, while another process writes.
void BesideWriter(benchmark::State& state, ReadFunction read, WriteFunction write);

} // namespace bench
