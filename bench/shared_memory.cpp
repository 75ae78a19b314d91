// Shared memory: opening what exists, a view, and the way back.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <qvcore6/sharedmem.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "ratio.h"

namespace
{

constexpr std::uint32_t kSize = 4096;

std::string OwnName()
{
    return "/qvcore6-bench-" + std::to_string(getpid());
}

void Ours(benchmark::State& state)
{
    const std::string name = OwnName();
    QVHandle holder;
    QVSharedMemOpen(name.c_str(), QV_FILE_CREATE, 0, kSize, &holder);
    for (auto _ : state) {
        QVHandle handle;
        void* view;
        if (QVSharedMemOpen(name.c_str(), QV_FILE_WRITE, 0, 0, &handle) < 0 ||
            QVSharedMemAttach(handle, QV_FILE_WRITE, &view) < 0) {
            state.SkipWithError("not opened");
            break;
        }
        QVSharedMemDetach(view);
        QVSharedMemClose(handle);
    }
    QVSharedMemClose(holder);
}

void Posix(benchmark::State& state)
{
    const std::string name = OwnName();
    const int holder = shm_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
    if (ftruncate(holder, kSize) != 0) {
        state.SkipWithError("not made");
    }
    for (auto _ : state) {
        const int file = shm_open(name.c_str(), O_RDWR, 0);
        void* const view = mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        munmap(view, kSize);
        close(file);
    }
    close(holder);
    shm_unlink(name.c_str());
}

BENCHMARK(Ours)->Name("shared_memory/QVSharedMem");
BENCHMARK(Posix)->Name("shared_memory/shm_open");

const bool g_added = bench::AddGoals({
    {"shared memory: open, attach, detach, close", "shared_memory/QVSharedMem",
     "shared_memory/shm_open", 2.0},
});

} // namespace
