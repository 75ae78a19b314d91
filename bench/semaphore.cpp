// Semaphores: post and wait that meet nobody.
#include <benchmark/benchmark.h>
#include <qvcore6/semaphore.h>
#include <semaphore.h>

#include <string>

#include "ratio.h"

namespace
{

class Unnamed
{
public:
    Unnamed() { QVSemaphoreCreate(0, "bench", 0, &m_semaphore); }
    ~Unnamed() { QVSemaphoreDestroy(m_semaphore); }
    Unnamed(const Unnamed&) = delete;
    Unnamed& operator=(const Unnamed&) = delete;
    void Post() { QVSemaphorePost(m_semaphore); }
    void Wait() { QVSemaphoreWait(m_semaphore); }

private:
    QVSemaphore m_semaphore;
};

class Posix
{
public:
    Posix() { sem_init(&m_semaphore, 0, 0); }
    ~Posix() { sem_destroy(&m_semaphore); }
    Posix(const Posix&) = delete;
    Posix& operator=(const Posix&) = delete;
    void Post() { sem_post(&m_semaphore); }
    void Wait() { sem_wait(&m_semaphore); }

private:
    sem_t m_semaphore;
};

template <class Semaphore> void PostAndWait(benchmark::State& state)
{
    Semaphore semaphore;
    for (auto _ : state) {
        semaphore.Post();
        semaphore.Wait();
    }
}

template <class Semaphore> void Add(const std::string& name)
{
    benchmark::RegisterBenchmark(("semaphore/" + name).c_str(), PostAndWait<Semaphore>);
}

bool AddAll()
{
    Add<Unnamed>("QVSemaphore");
    Add<Posix>("sem_t");
    return true;
}

const bool g_registered = AddAll();

const bool g_added = bench::AddGoals({
    {"semaphore, unnamed", "semaphore/QVSemaphore", "semaphore/sem_t", 0.9},
});

} // namespace
