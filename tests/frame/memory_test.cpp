#include <gtest/gtest.h>
#include <qvcore6/memory.h>
#include <qvcore6/result.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <thread>

namespace
{

// How many bytes from 'begin' to 'end' of a block are zero.
std::ptrdiff_t Zeros(const void* block, std::size_t begin, std::size_t end)
{
    const auto* const bytes = static_cast<const unsigned char*>(block);
    return std::count(bytes + begin, bytes + end, 0);
}

TEST(Heap, GivesBlocksOfExactSize)
{
    for (const uint32_t size : {0u, 1u, 24u, 4096u, 1u << 20}) {
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

    void* block = &block;
    EXPECT_EQ(QVCalloc(0x10000, 0x10000, &block), E_OUTOFMEMORY) << "more than a size can say";
    EXPECT_EQ(block, nullptr);
    ASSERT_EQ(QVCalloc(3, 5, &block), S_OK);
    EXPECT_EQ(QVMallocSize(block), 15u);
    EXPECT_EQ(Zeros(block, 0, 15), 15);
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
    ASSERT_EQ(QVRealloc(&block, 0), S_OK);
    EXPECT_NE(block, nullptr) << "nothing there and nothing wanted: a block of no bytes";
    QVFree(block);
}

TEST(Heap, RecallocZeroesWhatItAdds)
{
    void* block = nullptr;
    ASSERT_EQ(QVRecalloc(&block, 4), S_OK);
    EXPECT_EQ(Zeros(block, 0, 4), 4);
    std::memset(block, 0xFF, 4);
    ASSERT_EQ(QVRecalloc(&block, 2), S_OK);
    ASSERT_EQ(QVRecalloc(&block, 5000), S_OK);
    EXPECT_EQ(QVMallocSize(block), 5000u);
    EXPECT_EQ(Zeros(block, 0, 2), 0);
    EXPECT_EQ(Zeros(block, 2, 5000), 4998);
    ASSERT_EQ(QVRecalloc(&block, 0), S_OK);
    EXPECT_EQ(block, nullptr);
    ASSERT_EQ(QVRecalloc(&block, 0), S_OK);
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

TEST(Atomics, GiveTheDocumentedValues)
{
    int32_t word = INT32_MAX;
    EXPECT_EQ(QVAtomicIncrement(&word), INT32_MIN);
    EXPECT_EQ(QVAtomicDecrement(&word), INT32_MAX);
    EXPECT_EQ(QVAtomicAdd32(&word, -7), INT32_MAX - 7);
    EXPECT_EQ(QVAtomicExchange(&word, 5), INT32_MAX - 7);
    EXPECT_EQ(QVAtomicCompareExchange(&word, 9, 4), 5) << "another value: left alone";
    EXPECT_EQ(QVAtomicCompareExchange(&word, 9, 5), 5);
    EXPECT_EQ(word, 9);
    intptr_t wide = INTPTR_MAX;
    EXPECT_EQ(QVAtomicAddSZ(&wide, 1), INTPTR_MIN);

    // None is lost between threads.
    const auto count = [&word] {
        for (int round = 0; round < 50000; ++round) {
            QVAtomicIncrement(&word);
        }
    };
    std::thread other(count);
    count();
    other.join();
    EXPECT_EQ(word, 100009);
}

TEST(Bytes, SwapAlignAndUnalignedAccess)
{
    EXPECT_EQ(QVSwapInt16(0x1234), 0x3412);
    EXPECT_EQ(QVSwapInt32(0x12345678u), 0x78563412u);
    EXPECT_EQ(QVSwapInt64(0x0102030405060708u), 0x0807060504030201u);
    const uint32_t sizes[][2] = {{0, 0}, {1, 4}, {4, 4}, {0xFFFFFFFC, 0xFFFFFFFC}, {0xFFFFFFFD, 0}};
    for (const auto& [size, aligned] : sizes) {
        EXPECT_EQ(QVGetAlignedSize(size), aligned) << size;
    }
    std::array<unsigned char, 9> bytes{};
    unsigned char* const odd = bytes.data() + 1;
    QVPutUnalignedInt64(odd, 0x1122334455667788u);
    EXPECT_EQ(QVGetUnalignedInt64(odd), 0x1122334455667788u);
    QVPutUnalignedInt32(odd, 0xA1B2C3D4u);
    EXPECT_EQ(QVGetUnalignedInt32(odd), 0xA1B2C3D4u);
    QVPutUnalignedInt16(odd, 0xBEEF);
    EXPECT_EQ(QVGetUnalignedInt16(odd), 0xBEEF);
    EXPECT_EQ(*odd, 0xEF) << "the machine's byte order";
}

TEST(DebugBreak, EndsAProcessWithoutDebugger)
{
    EXPECT_EXIT(QVDebugBreak(), testing::KilledBySignal(SIGTRAP), "");
}

} // namespace
