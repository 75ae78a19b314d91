#include "platform/com.h"

#include <gtest/gtest.h>
#include <sys/types.h>

#include <cerrno>
#include <cstring>

#include "platform/heap.h"

using namespace qv::platform;

namespace
{

int g_failures = 0;
int g_failure = 0;

} // namespace

extern "C"
{
    ssize_t __real_getrandom(void* buffer, size_t size, unsigned flags);
    ssize_t __wrap_getrandom(void* buffer, size_t size, unsigned flags)
    {
        if (g_failures > 0) {
            --g_failures;
            errno = g_failure;
            return -1;
        }
        return __real_getrandom(buffer, size, flags);
    }
}

namespace
{

TEST(TaskAllocatorObject, IsCountedAndKnowsItsBlocks)
{
    IMalloc* allocator = nullptr;
    EXPECT_EQ(CoGetMalloc(2, &allocator), kComInvalidArgument);
    EXPECT_EQ(allocator, nullptr);
    ASSERT_EQ(CoGetMalloc(MEMCTX_TASK, &allocator), 0);
    const ULONG count = allocator->AddRef();
    EXPECT_EQ(allocator->Release(), count - 1);

    const UUID iids[] = {{0, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}},
                         {2, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}},
                         {3, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}}};
    for (const UUID& iid : iids) {
        void* out = &out;
        const bool known = iid.Data1 != 3;
        EXPECT_EQ(allocator->QueryInterface(&iid, &out), known ? 0 : kComNoInterface);
        EXPECT_EQ(out, known ? allocator : nullptr);
        if (known) {
            allocator->Release();
        }
    }

    void* const own = allocator->Alloc(24);
    void* const foreign = RuntimeMalloc(24);
    EXPECT_EQ(allocator->DidAlloc(own), 1);
    EXPECT_EQ(allocator->DidAlloc(foreign), 0);
    EXPECT_EQ(allocator->DidAlloc(nullptr), -1);
    EXPECT_EQ(allocator->GetSize(own), 24u);
    EXPECT_EQ(allocator->GetSize(foreign), static_cast<std::size_t>(-1));
    // A block of the other heap is not touched, and the other heap does not touch ours.
    allocator->Free(foreign);
    EXPECT_EQ(allocator->Realloc(foreign, 8), nullptr);
    EXPECT_EQ(RuntimeMsize(foreign), 24u);
    RuntimeFree(own);
    EXPECT_EQ(allocator->DidAlloc(own), 1);
    EXPECT_EQ(allocator->Alloc(static_cast<std::size_t>(-1)), nullptr);
    EXPECT_EQ(allocator->Realloc(own, static_cast<std::size_t>(-8)), nullptr);
    EXPECT_EQ(allocator->GetSize(own), 24u);
    allocator->HeapMinimize();
    allocator->Free(own);
    allocator->Free(nullptr);
    RuntimeFree(foreign);
    allocator->Release();
}

TEST(NewUuid, WaitsOutInterruptionsAndReportsAMissingSource)
{
    UUID made;
    std::memset(&made, 0xA5, sizeof made);
    const UUID unwritten = made;
    g_failures = 1;
    g_failure = ENOSYS;
    errno = 77;
    EXPECT_EQ(UuidCreate(&made), RPC_S_UUID_NO_ADDRESS);
    EXPECT_EQ(std::memcmp(&made, &unwritten, sizeof made), 0);
    EXPECT_EQ(errno, 77);
    g_failures = 3;
    g_failure = EINTR;
    EXPECT_EQ(UuidCreate(&made), RPC_S_OK);
    EXPECT_EQ(made.Data3 >> 12, 4);
    EXPECT_EQ(made.Data4[0] >> 6, 2);
    EXPECT_EQ(errno, 77);
}

} // namespace
