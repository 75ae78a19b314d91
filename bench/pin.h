// Keeps a thread on one processor: two that are measured beside each other must not share one.
#pragma once

#include <pthread.h>

#include <cstddef>

namespace bench
{

class Pinned
{
public:
    explicit Pinned(int processor)
    {
        cpu_set_t set;
        CPU_ZERO(&set);
        CPU_SET(static_cast<std::size_t>(processor), &set);
        pthread_getaffinity_np(pthread_self(), sizeof m_before, &m_before);
        pthread_setaffinity_np(pthread_self(), sizeof set, &set);
    }
    ~Pinned() { pthread_setaffinity_np(pthread_self(), sizeof m_before, &m_before); }
    Pinned(const Pinned&) = delete;
    Pinned& operator=(const Pinned&) = delete;

private:
    cpu_set_t m_before;
};

} // namespace bench
