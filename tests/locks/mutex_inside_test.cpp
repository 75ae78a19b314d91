// What the mutex objects keep behind their handles, and creation when memory runs out.
#include <gtest/gtest.h>
#include <qvcore6/result.h>

#include <string>

#include "locks/mutex.h"
#include "support/alloc_faults.h"

namespace
{

IMutex& ObjectOf(QVMutex mutex)
{
    return *reinterpret_cast<IMutex*>(mutex);
}

TEST(MutexObject, KeepsNameAndEffectiveFlags)
{
    struct Row
    {
        const char* name;
        uint32_t flags;
        uint32_t effective;
        bool untracked;
    };
    const std::string longName(100000, 'x');
    const Row rows[] = {
        {nullptr, 0, 0, false},
        {"", 0x7, 0x7, false},
        {"a name", QV_MUTEX_UNTRACKED | QV_MUTEX_STATS, QV_MUTEX_UNTRACKED, true},
        {longName.c_str(), QV_MUTEX_SPIN | QV_MUTEX_NON_RECURSIVE,
         QV_MUTEX_SPIN | QV_MUTEX_NON_RECURSIVE, false},
    };
    for (const Row& row : rows) {
        QVMutex mutex = QV_MUTEX_NONE;
        ASSERT_EQ(QVMutexCreate(row.name, row.flags, &mutex), S_OK);
        IMutex& object = ObjectOf(mutex);
        EXPECT_EQ(object.GetName(), row.name != nullptr ? row.name : "");
        EXPECT_EQ(object.GetFlags(), row.effective);
        EXPECT_EQ(object.IsUntracked(), row.untracked);
        EXPECT_EQ(object.GetStats(nullptr), E_NOTIMPL);
        object.ResetStats();
        QVMutexDestroy(mutex);
    }
}

TEST(MutexObject, CreationSurvivesEveryFailedAllocation)
{
    long before = 0;
    const std::string name(200, 'n');
    QVMutex mutex = QV_MUTEX_NONE;
    QVRESULT result = S_OK;
    const long failures = qv::test::SweepAllocations(
        [&] {
            before = qv::test::LiveBlocks();
            mutex = nullptr;
            result = QVMutexCreate(name.c_str(), 0, &mutex);
        },
        [&](long n, bool failed) {
            EXPECT_EQ(result, failed ? E_OUTOFMEMORY : S_OK) << n;
            EXPECT_EQ(mutex == QV_MUTEX_NONE, failed) << n;
            if (!failed) {
                QVMutexDestroy(mutex);
            }
            EXPECT_EQ(qv::test::LiveBlocks(), before) << n;
        });
    EXPECT_EQ(failures, 2) << "the object and its name";
}

} // namespace
