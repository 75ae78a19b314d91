// Semaphores, unnamed and named: post and wait that meet nobody.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <qvcore6/semaphore.h>
#include <semaphore.h>
#include <unistd.h>

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

class PosixUnnamed
{
public:
    PosixUnnamed() { sem_init(&m_semaphore, 0, 0); }
    ~PosixUnnamed() { sem_destroy(&m_semaphore); }
    PosixUnnamed(const PosixUnnamed&) = delete;
    PosixUnnamed& operator=(const PosixUnnamed&) = delete;
    void Post() { sem_post(&m_semaphore); }
    void Wait() { sem_wait(&m_semaphore); }

private:
    sem_t m_semaphore;
};

std::string OwnName()
{
    std::string name = "/qvcore6-bench-";
    return name.append(std::to_string(getpid()));
}

class Named
{
public:
    Named() { QVNamedSemOpen(OwnName().c_str(), 0, &m_semaphore); }
    ~Named() { QVNamedSemClose(m_semaphore); }
    Named(const Named&) = delete;
    Named& operator=(const Named&) = delete;
    void Post() { QVNamedSemPost(m_semaphore); }
    void Wait() { QVNamedSemWait(m_semaphore); }

private:
    QVSemaphore m_semaphore;
};

class PosixNamed
{
public:
    PosixNamed() : m_semaphore(sem_open(OwnName().c_str(), O_CREAT | O_EXCL, 0600, 0))
    {
        sem_unlink(OwnName().c_str());
    }
    ~PosixNamed() { sem_close(m_semaphore); }
    PosixNamed(const PosixNamed&) = delete;
    PosixNamed& operator=(const PosixNamed&) = delete;
    void Post() { sem_post(m_semaphore); }
    void Wait() { sem_wait(m_semaphore); }

private:
    sem_t* m_semaphore;
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
    Add<PosixUnnamed>("sem_t");
    Add<Named>("QVNamedSem");
    Add<PosixNamed>("sem_open");
    return true;
}

const bool g_registered = AddAll();

const bool g_added = bench::AddGoals({
    {"semaphore, unnamed", "semaphore/QVSemaphore", "semaphore/sem_t", 0.9},
    {"semaphore, named", "semaphore/QVNamedSem", "semaphore/sem_open", 1.1},
});

} // namespace
