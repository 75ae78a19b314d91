// A child's whole life: the start of a program that does nothing, and the wait for its end, in a
// parent with little memory and with much.
#include "ratio.h"

#include <benchmark/benchmark.h>
#include <qvcore6/process.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>

namespace
{

constexpr const char* kProgram = "/bin/true";

// Memory that the parent uses.
class Ballast
{
public:
    explicit Ballast(const benchmark::State& state)
        : m_size(static_cast<std::size_t>(state.range(0)) << 20),
          m_memory(
              mmap(nullptr, m_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))
    {
        // In the pages of a long-lived heap.
        madvise(m_memory, m_size, MADV_NOHUGEPAGE);
        std::memset(m_memory, 1, m_size);
    }
    ~Ballast() { munmap(m_memory, m_size); }
    Ballast(const Ballast&) = delete;
    Ballast& operator=(const Ballast&) = delete;

private:
    std::size_t m_size;
    void* m_memory;
};

void Ours(benchmark::State& state)
{
    const Ballast ballast(state);
    for (auto _ : state) {
        QVHandle process = QV_HANDLE_NONE;
        uint32_t exitCode = 1;
        QVProcessCreate(u"/bin/true", nullptr, nullptr, nullptr, 0, nullptr, &process);
        QVProcessJoin(process, &exitCode);
        if (exitCode != 0) {
            state.SkipWithError("no process");
            break;
        }
    }
}

template <class Start> void Wait(benchmark::State& state, Start start)
{
    const Ballast ballast(state);
    for (auto _ : state) {
        const pid_t process = start();
        int status = 1;
        if (waitpid(process, &status, 0) != process || status != 0) {
            state.SkipWithError("no process");
            break;
        }
    }
}

void Spawn(benchmark::State& state)
{
    Wait(state, [] {
        pid_t process = -1;
        char* const arguments[] = {const_cast<char*>(kProgram), nullptr};
        posix_spawn(&process, kProgram, nullptr, nullptr, arguments, environ);
        return process;
    });
}

void Fork(benchmark::State& state)
{
    Wait(state, [] {
        const pid_t process = fork();
        if (process == 0) {
            execl(kProgram, kProgram, nullptr);
            _exit(127);
        }
        return process;
    });
}

bool AddAll()
{
    benchmark::RegisterBenchmark("process/life/QVProcess", Ours)->Arg(10)->Arg(1024);
    benchmark::RegisterBenchmark("process/life/posix_spawn", Spawn)->Arg(10)->Arg(1024);
    benchmark::RegisterBenchmark("process/life/fork", Fork)->Arg(1024);
    return true;
}

const bool g_registered = AddAll();

const bool g_added = bench::AddGoals({
    {"process, 10 MiB", "process/life/QVProcess/10", "process/life/posix_spawn/10", 1.0},
    {"process, 1 GiB", "process/life/QVProcess/1024", "process/life/posix_spawn/1024", 1.0},
    {"process, 1 GiB, beside fork", "process/life/QVProcess/1024", "process/life/fork/1024", 0},
});

} // namespace
