#include <gtest/gtest.h>
#include <qvcore6/mutex.h>

#include <stdexcept>
#include <thread>

#include "frame/boundary.h"
#include "frame/ref_counted.h"
#include "locks/lock_guard.h"

namespace
{

using namespace qv::core;

TEST(Boundary, TurnsWhatIsThrownIntoCodes)
{
    const auto throwing = [](const auto& thrown) { return Boundary([&thrown] { throw thrown; }); };
    EXPECT_EQ(throwing(EQVCoreException(E_INVALIDARG)), E_INVALIDARG);
    EXPECT_EQ(throwing(std::bad_alloc()), E_OUTOFMEMORY);
    EXPECT_EQ(throwing(std::bad_array_new_length()), E_OUTOFMEMORY);
    EXPECT_EQ(throwing(std::length_error("too long")), E_FAIL);
    EXPECT_EQ(throwing(5), E_FAIL);
    EXPECT_EQ(Boundary([] { return QV_S_CREATED; }), QV_S_CREATED);
    EXPECT_EQ(Boundary([] {}), S_OK);
}

TEST(Boundary, GivesBackALockOnTheWay)
{
    QVMutex mutex = QV_MUTEX_NONE;
    ASSERT_EQ(QVMutexCreate("guarded", 0, &mutex), S_OK);
    EXPECT_EQ(Boundary([&] {
                  const LockGuard guard(mutex);
                  ThrowIfFailed(E_ABORT);
              }),
              E_ABORT);
    std::jthread([mutex] { EXPECT_EQ(QVMutexTryAcquire(mutex), S_OK); }).join();
    QVMutexDestroy(mutex);
    EXPECT_EQ(Boundary([] { const LockGuard guard(QV_MUTEX_NONE); }), E_OUTOFMEMORY);
}

TEST(RefPtr, LastReferenceDeletes)
{
    struct Counted : CQVCoreRefCounted
    {
        explicit Counted(int& deleted) : m_deleted(deleted) {}
        ~Counted() override { ++m_deleted; }
        int& m_deleted;
    };
    int deleted = 0;
    RefPtr<Counted> first(new Counted(deleted));
    RefPtr<Counted> second = first;
    RefPtr<Counted> moved = std::move(first);
    EXPECT_FALSE(first);
    EXPECT_EQ(moved.Get(), second.Get());
    second = RefPtr<Counted>();
    const RefPtr<Counted>& alias = moved;
    moved = alias;
    EXPECT_EQ(deleted, 0) << "assigned to itself";
    moved = RefPtr<Counted>();
    EXPECT_EQ(deleted, 1);
}

} // namespace
