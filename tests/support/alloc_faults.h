// Makes the n-th allocation of the code under test fail, and counts the live blocks.
//
// Linking this replaces operator new and delete of the whole test program. Tests that link the
// library's objects also have malloc, calloc, realloc and free of those objects counted, through
// qv_add_test(... WRAP ${QV_ALLOC_WRAPS}).
#pragma once

#include <functional>

namespace qv::test
{

// Live blocks that counted calls of any thread have made and not freed.
long LiveBlocks();

// While one lives, the n-th counted allocation of this thread (from 1) fails, all others succeed.
class FailAllocation
{
public:
    explicit FailAllocation(long n)
    {
        s_countdown = n;
        s_happened = false;
    }
    ~FailAllocation() { s_countdown = 0; }
    FailAllocation(const FailAllocation&) = delete;
    FailAllocation& operator=(const FailAllocation&) = delete;

    static bool Happened() { return s_happened; } // of the last one
    // Counts one allocation.
    static bool IsNow()
    {
        s_happened = s_happened || s_countdown == 1;
        return s_countdown > 0 && --s_countdown == 0;
    }

private:
    static inline thread_local long s_countdown = 0; // 0: none is to fail
    static inline thread_local bool s_happened = false;
};

// Runs the call with the first, second, third ... allocation failing until none fails any more, and
// returns how many runs had a failure. After each run, check(n, failed) looks at what it left.
// The check itself runs with no failure set. Stops after 10,000 runs.
long SweepAllocations(const std::function<void()>& call,
                      const std::function<void(long n, bool failed)>& check);

} // namespace qv::test
