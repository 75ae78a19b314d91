// The heap exports when memory runs out, and the counters when the clock calls fail.
#include <gtest/gtest.h>
#include <qvcore6/memory.h>
#include <qvcore6/result.h>

#include <cstring>

#include "platform/clock.h"
#include "support/alloc_faults.h"

namespace
{

bool g_clockFails = false;

} // namespace

extern "C"
{
    qv::platform::BOOL __real_QueryPerformanceCounter(std::int64_t* count);
    qv::platform::BOOL __real_QueryPerformanceFrequency(std::int64_t* frequency);

    qv::platform::BOOL __wrap_QueryPerformanceCounter(std::int64_t* count)
    {
        return g_clockFails ? 0 : __real_QueryPerformanceCounter(count);
    }

    qv::platform::BOOL __wrap_QueryPerformanceFrequency(std::int64_t* frequency)
    {
        return g_clockFails ? 0 : __real_QueryPerformanceFrequency(frequency);
    }
}

namespace
{

using qv::test::FailAllocation;

TEST(HeapFaults, KeepTheCallersPointer)
{
    void* block = &block;
    {
        const FailAllocation fault(1);
        EXPECT_EQ(QVMalloc(8, &block), E_OUTOFMEMORY);
        EXPECT_EQ(block, nullptr);
    }
    {
        const FailAllocation fault(1);
        block = &block;
        EXPECT_EQ(QVCalloc(2, 4, &block), E_OUTOFMEMORY);
        EXPECT_EQ(block, nullptr);
    }
    {
        const FailAllocation fault(1);
        EXPECT_EQ(QVRecalloc(&block, 4), E_OUTOFMEMORY);
        EXPECT_EQ(block, nullptr);
    }
    const long before = qv::test::LiveBlocks();
    ASSERT_EQ(QVMalloc(8, &block), S_OK);
    std::memcpy(block, "1234567", 8);
    void* const kept = block;
    {
        const FailAllocation fault(1);
        EXPECT_EQ(QVRealloc(&block, 100), E_OUTOFMEMORY);
    }
    {
        const FailAllocation fault(1);
        EXPECT_EQ(QVRecalloc(&block, 100), E_OUTOFMEMORY);
    }
    EXPECT_EQ(block, kept);
    EXPECT_STREQ(static_cast<char*>(block), "1234567");
    EXPECT_EQ(QVMallocSize(block), 8u) << "still a live block";
    QVFree(block);
    EXPECT_EQ(qv::test::LiveBlocks(), before);
}

TEST(CounterFaults, MillisecondsStandIn)
{
    g_clockFails = true;
    const uint64_t count = QVPerfGetCount();
    const uint64_t frequency = QVPerfGetFreq();
    const uint32_t milliseconds = QVPerfGetCountMS();
    g_clockFails = false;
    EXPECT_EQ(frequency, 1000u);
    EXPECT_LE(milliseconds - static_cast<uint32_t>(count), 60000u);
    EXPECT_LE(count, UINT32_MAX);
}

} // namespace
