#include <qvcore6/file.h>
#include <qvcore6/result.h>
#include <qvcore6/str.h>

#include "platform/error.h"
#include "platform/file.h"
#include "platform/full_path.h"

using namespace qv::platform;

namespace
{

constexpr uint32_t kDispositionFlags = QV_FILE_CREATE | QV_FILE_TRUNCATE | QV_FILE_EXCLUSIVE;
constexpr uint32_t kAccessFlags = QV_FILE_READ | QV_FILE_WRITE;
constexpr uint32_t kWriteBits = 0222; // of a mode

// What CreateFileW is asked for.
struct Request
{
    DWORD access;
    DWORD attributes;
    bool isMadeHere = false; // an empty file that has been made for this handle
    WCHAR name[MAX_PATH];    // to be filled in
};

DWORD DispositionOf(uint32_t flags)
{
    switch (flags & kDispositionFlags) {
    case 0:
        return OPEN_EXISTING;
    case QV_FILE_CREATE:
        return OPEN_ALWAYS;
    case QV_FILE_TRUNCATE:
        return TRUNCATE_EXISTING;
    case QV_FILE_CREATE | QV_FILE_TRUNCATE:
        return CREATE_ALWAYS;
    case QV_FILE_EXCLUSIVE | QV_FILE_CREATE:
    case QV_FILE_EXCLUSIVE | QV_FILE_CREATE | QV_FILE_TRUNCATE:
        return CREATE_NEW;
    default:
        return 0; // which the platform refuses
    }
}

bool IsEmpty(const QVWChar* path)
{
    return path == nullptr || *path == 0;
}

// A file of its own for a caller who gives no name. Failures show when it is opened.
void MakeTemporaryFile(Request& request)
{
    WCHAR folder[MAX_PATH] = {};
    GetTempPathW(MAX_PATH, folder);
    request.isMadeHere = GetTempFileNameW(folder, u"tmp", 0, request.name) != 0;
}

// False for a path that does not fit: a part of it would be another file's.
bool TakePath(const QVWChar* path, Request& request)
{
    if (path != nullptr && QVStrLenW(path) >= MAX_PATH) {
        return false;
    }
    QVStrCpyW(request.name, path != nullptr ? path : u"");
    return true;
}

} // namespace

QVRESULT QVFileOpen(const QVWChar* path, uint32_t flags, uint32_t mode, QVHandle* handleOut)
{
    *handleOut = QV_HANDLE_NONE;
    Request request;
    request.access = flags & kAccessFlags;
    request.attributes = FILE_ATTRIBUTE_NORMAL;
    if ((flags & QV_FILE_CREATE) != 0 && (mode & kWriteBits) == 0) {
        request.attributes = FILE_ATTRIBUTE_READONLY;
    }
    const bool isTemporary = (flags & QV_FILE_TEMPORARY) != 0;
    if (isTemporary && IsEmpty(path)) {
        MakeTemporaryFile(request);
        flags &= ~kDispositionFlags;
    } else if (!TakePath(path, request)) {
        return QVResultFromNative(ERROR_FILENAME_EXCED_RANGE);
    } else if (isTemporary) {
        flags |= QV_FILE_CREATE;
    }
    if (isTemporary) {
        request.access |= DELETE;
        request.attributes |= FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE;
    }
    if ((flags & QV_FILE_WRITE_THROUGH) != 0) {
        request.attributes |= FILE_FLAG_WRITE_THROUGH;
    }
    const DWORD disposition = DispositionOf(flags);
    const Descriptor handle =
        CreateFileW(request.name, request.access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                    disposition, request.attributes, nullptr);
    if (handle == QV_HANDLE_NONE) {
        const QVRESULT result = QVResultFromNative(GetLastError());
        if (request.isMadeHere) {
            DeleteFileW(request.name);
        }
        return result;
    }
    *handleOut = handle;
    const bool mayCreate = disposition == CREATE_ALWAYS || disposition == OPEN_ALWAYS;
    const bool isCreated = mayCreate && GetLastError() != ERROR_ALREADY_EXISTS;
    if ((flags & QV_FILE_APPEND) != 0 &&
        SetFilePointer(handle, 0, nullptr, FILE_END) == INVALID_SET_FILE_POINTER) {
        return QVResultFromNative(GetLastError());
    }
    return isCreated ? QV_S_CREATED : S_OK;
}
