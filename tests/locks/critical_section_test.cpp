#include <gtest/gtest.h>

#include <cerrno>
#include <thread>
#include <vector>

#include "platform/critical_section.h"

namespace
{

using namespace qv::platform;

DWORD Contention(const CRITICAL_SECTION& section)
{
    return section.DebugInfo->ContentionCount.load();
}

// Each entry that has to sleep counts once; neither free nor nested entries nor tries count.
TEST(CriticalSection, CountsBlockedEntriesAndKeepsErrno)
{
    CRITICAL_SECTION section;
    InitializeCriticalSection(&section);
    EnterCriticalSection(&section);
    EnterCriticalSection(&section);
    LeaveCriticalSection(&section);
    EXPECT_EQ(Contention(section), 0u);
    std::vector<std::thread> threads;
    for (int count = 0; count < 5; ++count) {
        threads.emplace_back([&section] {
            EXPECT_EQ(TryEnterCriticalSection(&section), 0);
            errno = 4711;
            EnterCriticalSection(&section);
            LeaveCriticalSection(&section);
            EXPECT_EQ(errno, 4711);
        });
    }
    while (Contention(section) != 5) {
        std::this_thread::yield();
    }
    LeaveCriticalSection(&section);
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(TryEnterCriticalSection(&section), 1);
    LeaveCriticalSection(&section);
    EXPECT_EQ(Contention(section), 5u);
    DeleteCriticalSection(&section);
}

TEST(CriticalSection, SpinCountDependsOnProcessors)
{
    CRITICAL_SECTION section;
    EXPECT_EQ(InitializeCriticalSectionAndSpinCount(&section, 4000), 1);
    EXPECT_EQ(section.spin, std::thread::hardware_concurrency() > 1 ? 4000u : 0u);
    InitializeCriticalSection(&section);
    EXPECT_EQ(section.spin, 0u);
}

} // namespace
