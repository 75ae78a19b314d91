#include <gtest/gtest.h>
#include <qvcore6/mutex.h>

#include <pthread.h>

#include <atomic>
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
    QVRESULT other = E_FAIL;
    std::thread([&] {
        other = QVMutexTryAcquire(mutex);
        if (other == S_OK) {
            QVMutexRelease(mutex);
        }
    }).join();
    EXPECT_EQ(other, S_OK);
    QVMutexDestroy(mutex);
    EXPECT_EQ(Boundary([] { const LockGuard guard(QV_MUTEX_NONE); }), E_OUTOFMEMORY);
}

// A thread that ends inside a callback goes on unwinding: swallowing that would end the process.
TEST(Boundary, LetsAnEndingThreadPass)
{
    static std::atomic<bool> passed;
    passed = false;
    pthread_t thread{};
    ASSERT_EQ(pthread_create(
                  &thread, nullptr,
                  [](void*) -> void* {
                      Boundary([] { pthread_exit(&passed); });
                      passed = true;
                      return nullptr;
                  },
                  nullptr),
              0);
    void* value = nullptr;
    pthread_join(thread, &value);
    EXPECT_EQ(value, &passed);
    EXPECT_FALSE(passed);
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
