// The task allocator and its calls, and new GUIDs.
#include <sys/types.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "component/component_test.h"
#include "frame/facts.h"
#include "platform/com.h"
#include "platform/heap.h"
#include "support/alloc_faults.h"

using namespace qv;
using namespace qv::test;

namespace
{

int g_randomFailures = 0; // that are still to come
int g_randomErrno = 0;

} // namespace

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

TEST(TaskAllocator, IsCountedAndLeavesBlocksOfTheOtherHeapAlone)
{
    platform::IMalloc* allocator = nullptr;
    EXPECT_EQ(platform::CoGetMalloc(2, &allocator), platform::kComInvalidArgument);
    ASSERT_EQ(platform::CoGetMalloc(platform::MEMCTX_TASK, &allocator), 0);
    const platform::ULONG count = allocator->AddRef();
    for (const uint32_t first : {0u, 2u, 3u}) {
        const bool isKnown = first != 3;
        const platform::UUID iid = {first, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
        void* out = &out;
        EXPECT_EQ(allocator->QueryInterface(&iid, &out), isKnown ? 0 : kNoInterface);
        EXPECT_EQ(out, isKnown ? allocator : nullptr);
    }
    for (const platform::ULONG more : {1u, 0u, -1u, -2u}) {
        EXPECT_EQ(allocator->Release(), count + more);
    }

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
    EXPECT_EQ(allocator->DidAlloc(own), 1);
    EXPECT_EQ(allocator->DidAlloc(foreign), 0);
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
    for (int again = 0; again < 2; ++again) {
        EXPECT_EQ(QVComRealloc(&block, 0), S_OK);
        EXPECT_EQ(block, nullptr);
    }
    ASSERT_EQ(QVComRealloc(&block, 5), S_OK); // a null block allocates
    EXPECT_EQ(QVComFree(block), S_OK);
    EXPECT_EQ(QVComFree(nullptr), S_OK);

    auto* const allocator = std::exchange(core::s_malloc, nullptr); // as after a failed start
    block = &block;
    EXPECT_EQ(QVComRealloc(&block, 0), E_OUTOFMEMORY);
    EXPECT_EQ(block, &block);
    EXPECT_EQ(QVComMalloc(1, &block), E_OUTOFMEMORY);
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(QVComFree(nullptr), S_OK);
    core::s_malloc = allocator;
}

TEST(GuidGeneration, WaitsOutInterruptionsAndFailsWithoutASource)
{
    GUID last = {};
    for (int round = 0; round < 20; ++round) {
        g_randomFailures = round;
        g_randomErrno = EINTR;
        GUID guid = last;
        EXPECT_EQ(QVComGenerateGUID(&guid), S_OK);
        EXPECT_EQ(guid.Data3 >> 12, 4);
        EXPECT_EQ(guid.Data4[0] >> 6, 2);
        EXPECT_EQ(QVComIsEqualGUID(&guid, &last), 0);
        last = guid;
    }
    g_randomFailures = 1;
    g_randomErrno = ENOSYS;
    GUID guid = last;
    errno = 77;
    EXPECT_EQ(QVComGenerateGUID(&guid), E_FAIL);
    EXPECT_EQ(errno, 77);
    EXPECT_EQ(QVComIsEqualGUID(&guid, &last), 1);
}

} // namespace
