// The heap exports when memory runs out, and the counters when the clock calls fail.
#include <gtest/gtest.h>
#include <qvcore6/memory.h>
#include <qvcore6/result.h>

#include <cstring>

#include "platform/clock.h"
#include "support/alloc_faults.h"

using namespace qv;

namespace
{

bool g_clockFails = false;

} // namespace

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

template <class Call> QVRESULT WithoutMemory(Call call)
{
    const test::FailAllocation fault(1);
    return call();
}

TEST(HeapFaults, KeepTheCallersPointer)
{
    void* block = &block;
    EXPECT_EQ(WithoutMemory([&] { return QVMalloc(8, &block); }), E_OUTOFMEMORY);
    EXPECT_EQ(block, nullptr);
    block = &block;
    EXPECT_EQ(WithoutMemory([&] { return QVCalloc(2, 4, &block); }), E_OUTOFMEMORY);
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(WithoutMemory([&] { return QVRecalloc(&block, 4); }), E_OUTOFMEMORY);
    EXPECT_EQ(block, nullptr);

    const long before = test::LiveBlocks();
    ASSERT_EQ(QVMalloc(8, &block), S_OK);
    std::memcpy(block, "1234567", 8);
    void* const kept = block;
    EXPECT_EQ(WithoutMemory([&] { return QVRealloc(&block, 100); }), E_OUTOFMEMORY);
    EXPECT_EQ(WithoutMemory([&] { return QVRecalloc(&block, 100); }), E_OUTOFMEMORY);
    EXPECT_EQ(block, kept);
    EXPECT_STREQ(static_cast<char*>(block), "1234567");
    EXPECT_EQ(QVMallocSize(block), 8u) << "still a live block";
    QVFree(block);
    EXPECT_EQ(test::LiveBlocks(), before);
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
