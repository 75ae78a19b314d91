#include <qvcore6/semaphore.h>

#include <memory>
#include <utility>

#include "frame/boundary.h"
#include "locks/restricted_attributes.h"
#include "locks/wait_record.h"
#include "platform/named_semaphore.h"
#include "platform/unnamed_semaphore.h"

using namespace qv::core;
using namespace qv::platform;

namespace
{

constexpr LONG kMaximumCount = 32767;

WaitRecord* FromHandle(QVSemaphore semaphore)
{
    return reinterpret_cast<WaitRecord*>(semaphore);
}

// One operation on the semaphore, whichever of the two kinds it is; false leaves it to the calls.
template <class Operation> bool Try(const WaitRecord& record, Operation operation)
{
    if (record.m_handle == nullptr) [[unlikely]] {
        return false;
    }
    return (record.m_flags & QV_SEMAPHORE_NAMED) == 0
               ? operation(*ObjectOf<UnnamedSemaphore>(record))
               : operation(*ObjectOf<NamedSemaphore>(record));
}

QVRESULT Wait(QVSemaphore semaphore, DWORD milliseconds)
{
    const WaitRecord& record = *FromHandle(semaphore);
    if (Try(record, [](auto& object) { return object.TryTake(); })) [[likely]] {
        return S_OK;
    }
    return ResultOfWait(record.m_handle, milliseconds, E_FAIL);
}

// For every authenticated user: processes of all of them meet here.
HANDLE CreateNamed(LONG initialCount, const std::string& platformName)
{
    constexpr DWORD kSemaphoreAllAccess = 0x1F0003;
    const RestrictedAttributes attributes(kSemaphoreAllAccess);
    return CreateSemaphoreA(attributes.Get(), initialCount, kMaximumCount, platformName.c_str());
}

} // namespace

QVRESULT QVSemaphoreCreate(int32_t initialCount, const char* name, uint32_t flags,
                           QVSemaphore* handleOut)
{
    *handleOut = QV_SEMAPHORE_NONE;
    return Boundary([&] {
        auto record = std::make_unique<WaitRecord>(name, flags);
        if ((flags & QV_SEMAPHORE_NAMED) != 0) {
            record->Own(CreateNamed(initialCount, "SEM:" + record->m_name));
        } else {
            record->Own(CreateSemaphoreA(nullptr, initialCount, kMaximumCount, nullptr));
        }
        *handleOut = reinterpret_cast<QVSemaphore>(record.release());
    });
}

QVRESULT QVSemaphoreDestroy(QVSemaphore semaphore)
{
    const std::unique_ptr<WaitRecord> record(FromHandle(semaphore));
    if (record != nullptr) {
        // Not left to a destructor: a cancelled thread may end while it closes a named one.
        CloseHandle(std::exchange(record->m_handle, nullptr));
    }
    return S_OK;
}

QVRESULT QVSemaphorePost(QVSemaphore semaphore)
{
    const WaitRecord& record = *FromHandle(semaphore);
    if (Try(record, [](auto& object) { return object.TryPost(); })) [[likely]] {
        return S_OK;
    }
    return ResultOfCall(ReleaseSemaphore(record.m_handle, 1, nullptr));
}

QVRESULT QVSemaphoreWait(QVSemaphore semaphore)
{
    return Wait(semaphore, INFINITE);
}

QVRESULT QVSemaphoreTryWait(QVSemaphore semaphore)
{
    return Wait(semaphore, 0);
}

QVRESULT QVSemaphoreGetValue(QVSemaphore /*semaphore*/, int32_t* valueOut)
{
    *valueOut = -1;
    return S_OK;
}

// The same under the names that go with named ones.

QVRESULT QVNamedSemOpen(const char* name, int32_t initialCount, QVSemaphore* handleOut)
{
    if (name == nullptr) {
        // Not the empty name, under which others meet.
        *handleOut = QV_SEMAPHORE_NONE;
        return E_INVALIDARG;
    }
    constexpr uint32_t kOpenFlags = 3;
    return QVSemaphoreCreate(initialCount, name, kOpenFlags, handleOut);
}

QVRESULT QVNamedSemClose(QVSemaphore semaphore)
{
    return QVSemaphoreDestroy(semaphore);
}

QVRESULT QVNamedSemPost(QVSemaphore semaphore)
{
    return QVSemaphorePost(semaphore);
}

QVRESULT QVNamedSemWait(QVSemaphore semaphore)
{
    return QVSemaphoreWait(semaphore);
}

QVRESULT QVNamedSemTryWait(QVSemaphore semaphore)
{
    return QVSemaphoreTryWait(semaphore);
}

QVRESULT QVNamedSemGetValue(QVSemaphore semaphore, int32_t* valueOut)
{
    return QVSemaphoreGetValue(semaphore, valueOut);
}
