#include <qvcore6/file.h>
#include <qvcore6/result.h>

#include "frame/facts.h"
#include "platform/error.h"
#include "platform/file.h"
#include "platform/file_locks.h"
#include "platform/full_path.h"

using namespace qv::platform;

namespace
{

QVRESULT ResultOf(BOOL done)
{
    return done != kFalse ? S_OK : QVResultFromNative(GetLastError());
}

} // namespace

QVRESULT QVFileClose(QVHandle handle)
{
    return ResultOf(CloseHandle(Descriptor{handle}));
}

QVRESULT QVFileDelete(const QVWChar* path)
{
    return ResultOf(DeleteFileW(path));
}

QVRESULT QVFileGetSize(QVHandle handle, uint64_t* sizeOut)
{
    if (qv::core::s_isNT == 0) {
        return E_NOTIMPL;
    }
    std::int64_t size = 0;
    const QVRESULT result = ResultOf(GetFileSizeEx(handle, &size));
    if (result >= 0) {
        *sizeOut = static_cast<uint64_t>(size);
    }
    return result;
}

QVRESULT QVFileRead(QVHandle handle, void* buffer, uint32_t count, uint32_t* bytesRead)
{
    if (ReadFile(handle, buffer, count, bytesRead, nullptr) == kFalse) {
        return QVResultFromNative(GetLastError());
    }
    return *bytesRead != 0 ? S_OK : QV_E_END_OF_DATA;
}

QVRESULT QVFileWrite(QVHandle handle, const void* buffer, uint32_t count, uint32_t* bytesWritten)
{
    return ResultOf(WriteFile(handle, buffer, count, bytesWritten, nullptr));
}

QVRESULT QVFileFlush(QVHandle handle)
{
    return ResultOf(FlushFileBuffers(handle));
}

QVRESULT QVFileSeek(QVHandle handle, int32_t offset, uint32_t origin, uint32_t* positionOut)
{
    *positionOut = SetFilePointer(handle, offset, nullptr, origin);
    return *positionOut != INVALID_SET_FILE_POINTER ? S_OK : QVResultFromNative(GetLastError());
}

QVRESULT QVFileSeek64(QVHandle handle, int64_t offset, uint32_t origin, uint64_t* positionOut)
{
    std::int64_t position = 0;
    const QVRESULT result = ResultOf(SetFilePointerEx(handle, offset, &position, origin));
    *positionOut = static_cast<uint64_t>(position);
    return result;
}

QVRESULT QVFileLock(QVHandle handle, uint32_t offset, uint32_t length, uint32_t lockFlags)
{
    if (qv::core::s_isNT == 0) {
        return ResultOf(LockFile(handle, offset, 0, length, 0));
    }
    DWORD flags = 0;
    if ((lockFlags & QV_LOCK_SHARED) == 0) {
        flags |= LOCKFILE_EXCLUSIVE_LOCK;
    }
    if ((lockFlags & QV_LOCK_WAIT) == 0) {
        flags |= LOCKFILE_FAIL_IMMEDIATELY;
    }
    OVERLAPPED overlapped = {};
    overlapped.Offset = offset;
    return ResultOf(LockFileEx(handle, flags, 0, length, 0, &overlapped));
}

QVRESULT QVFileUnlock(QVHandle handle, uint32_t offset, uint32_t length)
{
    if (qv::core::s_isNT == 0) {
        return ResultOf(UnlockFile(handle, offset, 0, length, 0));
    }
    OVERLAPPED overlapped = {};
    overlapped.Offset = offset;
    return ResultOf(UnlockFileEx(handle, 0, length, 0, &overlapped));
}

QVRESULT QVPathExpand(const QVWChar* path, QVWChar* buffer, uint32_t size)
{
    QVWChar* filePart = nullptr;
    return GetFullPathNameW(path, size, buffer, &filePart) != 0
               ? S_OK
               : QVResultFromNative(GetLastError());
}
