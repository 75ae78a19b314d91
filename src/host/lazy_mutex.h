// A mutex that is made at its first use. It has neither constructor nor destructor to run.
#pragma once

#include <qvcore6/mutex.h>

#include <atomic>
#include <cstdint>

namespace qv::core
{

class LazyMutex
{
public:
    constexpr explicit LazyMutex(const char* name) : m_name(name) {}

    // QV_MUTEX_NONE if it could not be made; the next call tries again.
    QVMutex Get();

    // Around a fork: nobody makes the mutex meanwhile. It is not acquired, as its holder may be
    // waiting for a resolver: the child finds it free.
    void PrepareFork();
    void ParentAfterFork();
    void ChildAfterFork();

    // Only while nobody uses it.
    void Destroy();

private:
    void HoldSpin();
    void DropSpin();

    const char* m_name;
    std::atomic<std::uintptr_t> m_handle{UINTPTR_MAX}; // QV_MUTEX_NONE, which is no constant
    std::atomic<std::uint32_t> m_spin{0};
};

} // namespace qv::core
