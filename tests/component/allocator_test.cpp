// The task allocator's calls, with and without an allocator, and failing sources of GUIDs.
#include <gtest/gtest.h>
#include <qvcore6/component.h>
#include <qvcore6/result.h>

#include <cstring>
#include <utility>

#include "frame/facts.h"
#include "platform/com.h"

using namespace qv;

namespace
{

platform::LONG g_uuidResult = 0;

// Puts the allocator back at the end of the test.
struct WithoutAllocator
{
    platform::IMalloc* const saved = std::exchange(core::s_malloc, nullptr);
    ~WithoutAllocator() { core::s_malloc = saved; }
};

} // namespace

extern "C"
{
    platform::LONG __real_UuidCreate(platform::UUID* out);
    platform::LONG __wrap_UuidCreate(platform::UUID* out)
    {
        __real_UuidCreate(out);
        return g_uuidResult;
    }
}

namespace
{

TEST(ComAllocator, ABlockGrowsKeepsItsBytesAndEnds)
{
    void* block = nullptr;
    ASSERT_EQ(QVComMalloc(0, &block), S_OK);
    ASSERT_NE(block, nullptr);
    for (const uint32_t size : {1u, 100u, 70000u, 8u}) {
        ASSERT_EQ(QVComRealloc(&block, size), S_OK);
        EXPECT_EQ(core::s_malloc->GetSize(block), size);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % alignof(max_align_t), 0u);
        if (size > 1) {
            EXPECT_EQ(std::memcmp(block, "x", 1), 0);
        }
        std::memset(block, 'x', size);
    }
    EXPECT_EQ(QVComRealloc(&block, 0), S_OK);
    EXPECT_EQ(block, nullptr);
    ASSERT_EQ(QVComRealloc(&block, 5), S_OK); // a null block allocates
    EXPECT_EQ(QVComFree(block), S_OK);
    EXPECT_EQ(QVComFree(nullptr), S_OK);
}

TEST(ComAllocator, WithoutAnAllocatorThereIsNoMemory)
{
    const WithoutAllocator without;
    void* block = &block;
    EXPECT_EQ(QVComMalloc(1, &block), E_OUTOFMEMORY);
    EXPECT_EQ(block, nullptr);
    block = &block;
    EXPECT_EQ(QVComRealloc(&block, 1), E_OUTOFMEMORY);
    EXPECT_EQ(QVComRealloc(&block, 0), E_OUTOFMEMORY);
    EXPECT_EQ(block, &block);
    EXPECT_EQ(QVComFree(nullptr), S_OK);
}

TEST(GuidGeneration, OnlyAComputerWithoutAnAddressFails)
{
    const struct
    {
        platform::LONG answer;
        QVRESULT result;
    } rows[] = {
        {platform::RPC_S_OK, S_OK},
        {platform::RPC_S_UUID_LOCAL_ONLY, S_OK},
        {5, S_OK},
        {platform::RPC_S_UUID_NO_ADDRESS, E_FAIL},
    };
    for (const auto& row : rows) {
        g_uuidResult = row.answer;
        GUID guid = {};
        EXPECT_EQ(QVComGenerateGUID(&guid), row.result) << row.answer;
        EXPECT_EQ(QVComIsEqualGUID(&guid, &QV_IID_UNKNOWN), 0);
        EXPECT_EQ(guid.Data1 == 0 && guid.Data4[7] == 0, row.result < 0);
    }
    g_uuidResult = 0;
}

} // namespace
