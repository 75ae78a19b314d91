#include <gtest/gtest.h>
#include <qvcore6/memory.h>
#include <qvcore6/result.h>

#include <algorithm>
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
    for (const uint32_t size : {0u, 1u, 4096u, 1u << 20}) {
        void* block = nullptr;
        ASSERT_EQ(QVMalloc(size, &block), S_OK) << size;
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

TEST(Heap, ResizesAllocatesAndFrees)
{
    for (const auto resize : {&QVRealloc, &QVRecalloc}) {
        void* block = nullptr;
        ASSERT_EQ(resize(&block, 8), S_OK);
        std::memset(block, 0xFF, 8);
        ASSERT_EQ(resize(&block, 2), S_OK);
        ASSERT_EQ(resize(&block, 100000), S_OK);
        EXPECT_EQ(QVMallocSize(block), 100000u);
        EXPECT_EQ(Zeros(block, 0, 2), 0);
        if (resize == &QVRecalloc) {
            EXPECT_EQ(Zeros(block, 2, 100000), 99998);
        }
        ASSERT_EQ(resize(&block, 0), S_OK);
        EXPECT_EQ(block, nullptr);
        ASSERT_EQ(resize(&block, 0), S_OK);
        EXPECT_NE(block, nullptr) << "nothing there and nothing wanted: a block of no bytes";
        EXPECT_EQ(QVRecalloc(&block, 8), E_POINTER);
        QVFree(block);
    }
}

TEST(Heap, TurnsAwayWhatIsNoBlock)
{
    alignas(16) unsigned char foreign[64] = {};
    void* const middle = foreign + 32;
    void* block = middle;
    EXPECT_EQ(QVRecalloc(&block, 8), E_POINTER);
    EXPECT_EQ(QVRealloc(&block, 8), E_OUTOFMEMORY);
    EXPECT_EQ(block, middle);
    EXPECT_EQ(QVMallocSize(middle), 0u);
    EXPECT_EQ(QVFree(middle), S_OK);
    EXPECT_EQ(QVMallocSize(foreign + 33), 0u) << "not aligned";
}

TEST(Atomics, GiveTheDocumentedValues)
{
    int32_t word = INT32_MAX;
    EXPECT_EQ(QVAtomicIncrement(&word), INT32_MIN);
    EXPECT_EQ(QVAtomicDecrement(&word), INT32_MAX);
    EXPECT_EQ(QVAtomicAdd32(&word, -7), INT32_MAX - 7);
    EXPECT_EQ(QVAtomicExchange(&word, 5), INT32_MAX - 7);
    EXPECT_EQ(QVAtomicCompareExchange(&word, 9, 4), 5) << "another value: left alone";
    EXPECT_EQ(QVAtomicCompareExchange(&word, 0, 5), 5);
    intptr_t wide = INTPTR_MAX;
    EXPECT_EQ(QVAtomicAddSZ(&wide, 1), INTPTR_MIN);
    const auto count = [&word] {
        while (QVAtomicIncrement(&word) < 100000) {
        }
    };
    std::jthread other(count);
    count();
    other.join();
    EXPECT_EQ(word, 100001) << "none is lost between threads";
}

TEST(Bytes, SwapAlignAndUnalignedAccess)
{
    EXPECT_EQ(QVSwapInt16(0x1234), 0x3412);
    EXPECT_EQ(QVSwapInt32(0x12345678u), 0x78563412u);
    EXPECT_EQ(QVSwapInt64(0x0102030405060708u), 0x0807060504030201u);
    EXPECT_EQ(QVGetAlignedSize(1), 4u);
    EXPECT_EQ(QVGetAlignedSize(0xFFFFFFFC), 0xFFFFFFFC);
    EXPECT_EQ(QVGetAlignedSize(0xFFFFFFFD), 0u);
    unsigned char bytes[9];
    QVPutUnalignedInt64(bytes + 1, 0x1122334455667788u);
    EXPECT_EQ(QVGetUnalignedInt64(bytes + 1), 0x1122334455667788u);
    EXPECT_EQ(QVGetUnalignedInt32(bytes + 1), 0x55667788u) << "the machine's byte order";
    QVPutUnalignedInt32(bytes + 3, 0xA1B2C3D4u);
    QVPutUnalignedInt16(bytes + 5, 0xBEEF);
    EXPECT_EQ(QVGetUnalignedInt16(bytes + 5), 0xBEEF);
    EXPECT_EQ(QVGetUnalignedInt64(bytes + 1), 0x1122BEEFC3D47788u);
}

TEST(DebugBreak, EndsAProcessWithoutDebugger)
{
    EXPECT_EXIT(QVDebugBreak(), testing::KilledBySignal(SIGTRAP), "");
}

} // namespace
