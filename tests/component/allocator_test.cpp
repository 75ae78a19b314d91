// The task allocator and its calls, and new GUIDs.
#include <sys/types.h>

#include <cerrno>
#include <cstring>

#include "component/component_test.h"
#include "frame/facts.h"
#include "platform/com.h"
#include "platform/heap.h"
#include "support/alloc_faults.h"

using namespace qv;
using namespace qv::test;

static int g_randomFailures = 0; // that are still to come
static int g_randomErrno = 0;

extern "C"
{
    ssize_t __real_getrandom(void* buffer, size_t size, unsigned flags);
    ssize_t __wrap_getrandom(void* buffer, size_t size, unsigned flags)
    {
        if (g_randomFailures == 0) {
            return __real_getrandom(buffer, size, flags);
        }
        --g_randomFailures;
        errno = g_randomErrno;
        return -1;
    }
}

namespace
{

TEST(TaskAllocator, LeavesBlocksOfTheOtherHeapAlone)
{
    platform::IMalloc* allocator = nullptr;
    EXPECT_EQ(platform::CoGetMalloc(2, &allocator), platform::kComInvalidArgument);
    ASSERT_EQ(platform::CoGetMalloc(platform::MEMCTX_TASK, &allocator), 0);
    constexpr auto none = static_cast<std::size_t>(-1);
    void* const own = allocator->Alloc(24);
    void* const foreign = platform::RuntimeMalloc(24);
    allocator->Free(foreign);
    EXPECT_EQ(allocator->Realloc(foreign, 8), nullptr);
    EXPECT_EQ(platform::RuntimeMsize(foreign), 24u);
    platform::RuntimeFree(own);
    for (const std::size_t size : {none, none - 15}) {
        EXPECT_EQ(allocator->Alloc(size), nullptr);
        EXPECT_EQ(allocator->Realloc(own, size), nullptr);
    }
    EXPECT_EQ(allocator->GetSize(own), 24u);
    EXPECT_EQ(allocator->GetSize(foreign), none);
    allocator->Free(own);
    platform::RuntimeFree(foreign);
}

TEST(TaskAllocator, ABlockGrowsKeepsItsBytesAndEnds)
{
    void* block = nullptr;
    ASSERT_EQ(QVComMalloc(0, &block), S_OK);
    ASSERT_NE(block, nullptr);
    for (const uint32_t size : {1u, 100u, 70000u, 8u}) {
        void* const before = block;
        {
            const FailAllocation fault(1);
            EXPECT_EQ(QVComRealloc(&block, size), E_OUTOFMEMORY);
            EXPECT_EQ(block, before);
        }
        ASSERT_EQ(QVComRealloc(&block, size), S_OK);
        EXPECT_EQ(core::s_malloc->GetSize(block), size);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % alignof(std::max_align_t), 0u);
        EXPECT_TRUE(size == 1 || std::memcmp(block, "x", 1) == 0);
        std::memset(block, 'x', size);
    }
    for (const uint32_t size : {0u, 0u, 5u}) { // a null block allocates
        EXPECT_EQ(QVComRealloc(&block, size), S_OK);
        EXPECT_EQ(block != nullptr, size != 0);
    }
    EXPECT_EQ(QVComFree(block), S_OK);
    EXPECT_EQ(QVComFree(nullptr), S_OK);
}

TEST(GuidGeneration, WaitsOutInterruptionsAndFailsWithoutASource)
{
    GUID last = {};
    for (const int failure : {0, EINTR, EINTR, ENOSYS}) {
        g_randomFailures = failure == EINTR ? 20 : failure == ENOSYS ? 1 : 0;
        g_randomErrno = failure;
        errno = 77;
        GUID guid = last;
        EXPECT_EQ(QVComGenerateGUID(&guid), failure == ENOSYS ? E_FAIL : S_OK);
        EXPECT_EQ(errno, 77);
        EXPECT_EQ(QVComIsEqualGUID(&guid, &last), failure == ENOSYS ? 1 : 0);
        EXPECT_EQ(guid.Data3 >> 12, 4);
        EXPECT_EQ(guid.Data4[0] >> 6, 2);
        last = guid;
    }
}

} // namespace
