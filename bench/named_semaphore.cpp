// Named semaphores: post and wait that meet nobody.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <qvcore6/semaphore.h>
#include <semaphore.h>
#include <unistd.h>

#include <string>

#include "ratio.h"

namespace
{

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

class Posix
{
public:
    Posix() : m_semaphore(sem_open(OwnName().c_str(), O_CREAT | O_EXCL, 0600, 0))
    {
        sem_unlink(OwnName().c_str());
    }
    ~Posix() { sem_close(m_semaphore); }
    Posix(const Posix&) = delete;
    Posix& operator=(const Posix&) = delete;
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
    benchmark::RegisterBenchmark(("named_semaphore/" + name).c_str(), PostAndWait<Semaphore>);
}

bool AddAll()
{
    Add<Named>("QVNamedSem");
    Add<Posix>("sem_open");
    return true;
}

const bool g_registered = AddAll();

const bool g_added = bench::AddGoals({
    {"semaphore, named", "named_semaphore/QVNamedSem", "named_semaphore/sem_open", 1.1},
});

} // namespace
