// A table of programs that must hold in every interleaving. If the environment names a
// QV_PLANTED_FAULT, the sources have that, and one of the programs must fail.
#pragma once

#include <cstddef>
#include <new>
#include <string>
#include <vector>

#include "interleavings/explorer.h"

namespace qv::explore
{

struct Program
{
    std::string name;
    std::function<Scenario()> make;
    Limits limits = {};
};

// Prints how many schedules each took. QV_MORE_PREEMPTIONS in the environment adds to the limits.
void ExpectHold(const std::vector<Program>& programs);

// An object that a waiter destroys at once after its wait: nothing may touch it any more.
template <class Object> class Storage
{
public:
    template <class... Arguments> explicit Storage(Arguments... arguments)
    {
        new (m_bytes) Object(arguments...);
    }
    Object& operator*() { return *std::launder(reinterpret_cast<Object*>(m_bytes)); }
    Object* operator->() { return &**this; }
    void Destroy() { (**this).~Object(); }

private:
    alignas(Object) std::byte m_bytes[sizeof(Object)];
};

} // namespace qv::explore
