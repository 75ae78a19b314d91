// An atomic each of whose operations is a step that the explorer may put anything before. To be
// included after all headers but the ones that are explored: there std::atomic then means this one.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "interleavings/explorer.h"

namespace qv::explore
{

// Tells memory that is in use from what was destroyed or never made.
template <class Tag> class Liveness
{
public:
    constexpr ~Liveness() { *const_cast<volatile Tag*>(&m_tag) = 0; } // nor left out as dead
    void Check() const
    {
        Require(*const_cast<const volatile Tag*>(&m_tag) == kAlive, "something destroyed is used");
    }

private:
    static constexpr Tag kAlive = static_cast<Tag>(0xA5A5A5A5A5A5A5A5);
    Tag m_tag = kAlive;
};

template <class T> class Atomic
{
    using Order = std::memory_order;
    static constexpr Order kStrict = std::memory_order_seq_cst;

public:
    constexpr Atomic() = default;
    constexpr Atomic(T value) : m_value(value) {}
    Atomic(const Atomic&) = delete;
    Atomic& operator=(const Atomic&) = delete;

    T load(Order = kStrict, Where where = Here()) const
    {
        Stop("load", where);
        return m_value;
    }
    void store(T value, Order = kStrict, Where where = Here())
    {
        Stop("store", where);
        m_value = value;
    }
    T exchange(T value, Order = kStrict, Where where = Here())
    {
        return Change("exchange", where, [value](T) { return value; });
    }
    T fetch_add(T value, Order = kStrict, Where where = Here())
    {
        return Change("fetch_add", where, [value](T old) { return static_cast<T>(old + value); });
    }
    T fetch_sub(T value, Order = kStrict, Where where = Here())
    {
        return Change("fetch_sub", where, [value](T old) { return static_cast<T>(old - value); });
    }
    T fetch_and(T value, Order = kStrict, Where where = Here())
    {
        return Change("fetch_and", where, [value](T old) { return static_cast<T>(old & value); });
    }
    bool compare_exchange_strong(T& expected, T value, Order = kStrict, Order = kStrict,
                                 Where where = Here())
    {
        const T wanted = expected;
        expected = Change("compare_exchange", where,
                          [&](T seen) { return seen == wanted ? value : seen; });
        return expected == wanted;
    }
    bool compare_exchange_weak(T& expected, T value, Order = kStrict, Order = kStrict,
                               Where where = Here())
    {
        return compare_exchange_strong(expected, value, kStrict, kStrict, where);
    }

    // For the other models and for invariants: no step.
    T Seen() const { return m_value; }

private:
    using Tag = std::conditional_t<sizeof(T) == 8, std::uint64_t,
                                   std::conditional_t<sizeof(T) == 4, std::uint32_t, std::uint8_t>>;

    void Stop(const char* what, Where where) const
    {
        Step(what, this, where);
        m_liveness.Check();
    }
    template <class Operation> T Change(const char* what, Where where, Operation operation)
    {
        Stop(what, where);
        const T old = m_value;
        m_value = operation(old);
        return old;
    }

    T m_value{};
    Liveness<Tag> m_liveness; // of T's size: product sources look at halves of a word
};

} // namespace qv::explore

namespace std // NOLINT: the explored sources say std::atomic
{
template <class T> using explored_atomic = qv::explore::Atomic<T>;
}
#define atomic explored_atomic
