#include <gtest/gtest.h>
#include <qvcore6/memory.h>
#include <qvcore6/result.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <thread>

namespace
{

unsigned char* Bytes(void* block)
{
    return static_cast<unsigned char*>(block);
}

TEST(Heap, GivesBlocksOfExactSize)
{
    for (const uint32_t size : {0u, 1u, 10u, 24u, 4096u, 1u << 20}) {
        void* block = nullptr;
        ASSERT_EQ(QVMalloc(size, &block), S_OK) << size;
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % alignof(std::max_align_t), 0u);
        EXPECT_EQ(QVMallocSize(block), size);
        std::memset(block, 0xAA, size);
        EXPECT_EQ(QVFree(block), S_OK);
    }
    EXPECT_EQ(QVFree(nullptr), S_OK);
    EXPECT_EQ(QVMallocSize(nullptr), 0u);
}

TEST(Heap, RefusesProductsAboveItsSizes)
{
    void* block = &block;
    EXPECT_EQ(QVCalloc(0x10000, 0x10000, &block), E_OUTOFMEMORY);
    EXPECT_EQ(block, nullptr);
    ASSERT_EQ(QVCalloc(3, 5, &block), S_OK);
    EXPECT_EQ(QVMallocSize(block), 15u);
    EXPECT_EQ(std::count(Bytes(block), Bytes(block) + 15, 0), 15);
    QVFree(block);
}

TEST(Heap, ReallocResizesAllocatesAndFrees)
{
    void* block = nullptr;
    ASSERT_EQ(QVRealloc(&block, 8), S_OK);
    std::memcpy(block, "1234567", 8);
    ASSERT_EQ(QVRealloc(&block, 100000), S_OK);
    EXPECT_STREQ(static_cast<char*>(block), "1234567");
    ASSERT_EQ(QVRealloc(&block, 0), S_OK);
    EXPECT_EQ(block, nullptr);
    // Nothing there and nothing wanted: a block of no bytes.
    ASSERT_EQ(QVRealloc(&block, 0), S_OK);
    EXPECT_EQ(QVMallocSize(block), 0u);
    QVFree(block);
}

TEST(Heap, RecallocZeroesWhatItAdds)
{
    void* block = nullptr;
    ASSERT_EQ(QVRecalloc(&block, 4), S_OK);
    EXPECT_EQ(std::count(Bytes(block), Bytes(block) + 4, 0), 4);
    std::memset(block, 0xFF, 4);
    ASSERT_EQ(QVRecalloc(&block, 2), S_OK);
    ASSERT_EQ(QVRecalloc(&block, 5000), S_OK);
    EXPECT_EQ(QVMallocSize(block), 5000u);
    EXPECT_EQ(Bytes(block)[0], 0xFF);
    EXPECT_EQ(Bytes(block)[1], 0xFF);
    EXPECT_EQ(std::count(Bytes(block) + 2, Bytes(block) + 5000, 0), 4998);
    ASSERT_EQ(QVRecalloc(&block, 0), S_OK);
    EXPECT_EQ(block, nullptr);
    ASSERT_EQ(QVRecalloc(&block, 0), S_OK);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(QVRecalloc(&block, 8), E_POINTER) << "a block of no bytes";
    QVFree(block);
}

TEST(Heap, TurnsAwayWhatIsNoBlock)
{
    alignas(16) std::array<unsigned char, 64> foreign{};
    void* const middle = foreign.data() + 32;
    void* block = middle;
    EXPECT_EQ(QVRecalloc(&block, 8), E_POINTER);
    EXPECT_EQ(QVRealloc(&block, 8), E_OUTOFMEMORY);
    EXPECT_EQ(block, middle);
    EXPECT_EQ(QVMallocSize(middle), 0u);
    EXPECT_EQ(QVFree(middle), S_OK);
    EXPECT_EQ(QVMallocSize(foreign.data() + 33), 0u) << "not aligned";
}

TEST(Helpers, AlignedSizeRoundsUpAndWraps)
{
    const uint32_t rows[][2] = {{0, 0},         {1, 4}, {4, 4}, {5, 8}, {0xFFFFFFFC, 0xFFFFFFFC},
                                {0xFFFFFFFD, 0}};
    for (const auto& row : rows) {
        EXPECT_EQ(QVGetAlignedSize(row[0]), row[1]) << row[0];
    }
}

TEST(Atomics, GiveTheDocumentedValues)
{
    int32_t word = -1;
    EXPECT_EQ(QVAtomicIncrement(&word), 0);
    EXPECT_EQ(QVAtomicDecrement(&word), -1);
    word = INT32_MAX;
    EXPECT_EQ(QVAtomicIncrement(&word), INT32_MIN);
    EXPECT_EQ(QVAtomicDecrement(&word), INT32_MAX);
    EXPECT_EQ(QVAtomicAdd32(&word, -7), INT32_MAX - 7);
    EXPECT_EQ(QVAtomicExchange(&word, 5), INT32_MAX - 7);
    EXPECT_EQ(QVAtomicCompareExchange(&word, 9, 4), 5) << "another value: left alone";
    EXPECT_EQ(word, 5);
    EXPECT_EQ(QVAtomicCompareExchange(&word, 9, 5), 5);
    EXPECT_EQ(word, 9);
    intptr_t wide = INTPTR_MAX;
    EXPECT_EQ(QVAtomicAddSZ(&wide, 1), INTPTR_MIN);
}

TEST(Atomics, LoseNothingBetweenThreads)
{
    int32_t word = 0;
    const auto count = [&word] {
        for (int round = 0; round < 50000; ++round) {
            QVAtomicIncrement(&word);
        }
    };
    std::thread other(count);
    count();
    other.join();
    EXPECT_EQ(word, 100000);
}

TEST(Bytes, SwapAndUnalignedAccess)
{
    EXPECT_EQ(QVSwapInt16(0x1234), 0x3412);
    EXPECT_EQ(QVSwapInt32(0x12345678u), 0x78563412u);
    EXPECT_EQ(QVSwapInt64(0x0102030405060708u), 0x0807060504030201u);
    std::array<unsigned char, 24> bytes{};
    for (std::size_t at = 0; at < 8; ++at) {
        QVPutUnalignedInt64(bytes.data() + at, 0x1122334455667788u);
        EXPECT_EQ(QVGetUnalignedInt64(bytes.data() + at), 0x1122334455667788u);
        QVPutUnalignedInt32(bytes.data() + at, 0xA1B2C3D4u);
        EXPECT_EQ(QVGetUnalignedInt32(bytes.data() + at), 0xA1B2C3D4u);
        QVPutUnalignedInt16(bytes.data() + at, 0xBEEF);
        EXPECT_EQ(QVGetUnalignedInt16(bytes.data() + at), 0xBEEF);
        EXPECT_EQ(bytes[at], 0xEF) << "the machine's byte order";
    }
}

TEST(DebugBreak, EndsAProcessWithoutDebugger)
{
    EXPECT_EXIT(QVDebugBreak(), testing::KilledBySignal(SIGTRAP), "");
}

} // namespace
