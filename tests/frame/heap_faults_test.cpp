// The heap exports when memory runs out, and the counters when the clock calls fail.
#include <gtest/gtest.h>
#include <qvcore6/memory.h>
#include <qvcore6/result.h>

#include <cstring>

#include "platform/clock.h"
#include "support/alloc_faults.h"

using namespace qv;

static bool g_clockFails = false;

extern "C"
{
    decltype(platform::QueryPerformanceCounter) __real_QueryPerformanceCounter;
    decltype(platform::QueryPerformanceFrequency) __real_QueryPerformanceFrequency;

    platform::BOOL __wrap_QueryPerformanceCounter(std::int64_t* count)
    {
        return g_clockFails ? 0 : __real_QueryPerformanceCounter(count);
    }
    platform::BOOL __wrap_QueryPerformanceFrequency(std::int64_t* frequency)
    {
        return g_clockFails ? 0 : __real_QueryPerformanceFrequency(frequency);
    }
}

namespace
{

template <class Call> void ExpectFailure(void*& block, void* expectedBlock, Call call)
{
    const test::FailAllocation fault(1);
    EXPECT_EQ(call(), E_OUTOFMEMORY);
    EXPECT_EQ(block, expectedBlock);
}

TEST(HeapFaults, KeepTheCallersPointer)
{
    const long before = test::LiveBlocks();
    void* block = &block;
    ExpectFailure(block, nullptr, [&] { return QVMalloc(8, &block); });
    block = &block;
    ExpectFailure(block, nullptr, [&] { return QVCalloc(2, 4, &block); });
    ExpectFailure(block, nullptr, [&] { return QVRecalloc(&block, 4); });
    ASSERT_EQ(QVMalloc(8, &block), S_OK);
    std::memcpy(block, "1234567", 8);
    ExpectFailure(block, block, [&] { return QVRealloc(&block, 100); });
    ExpectFailure(block, block, [&] { return QVRecalloc(&block, 100); });
    EXPECT_STREQ(static_cast<char*>(block), "1234567");
    EXPECT_EQ(QVMallocSize(block), 8u) << "still a live block";
    QVFree(block);
    EXPECT_EQ(test::LiveBlocks(), before);
}

TEST(CounterFaults, MillisecondsStandIn)
{
    g_clockFails = true;
    EXPECT_EQ(QVPerfGetFreq(), 1000u);
    const uint64_t count = QVPerfGetCount();
    EXPECT_LE(count, UINT32_MAX);
    EXPECT_LE(QVPerfGetCountMS() - static_cast<uint32_t>(count), 60000u);
    g_clockFails = false;
}

} // namespace
