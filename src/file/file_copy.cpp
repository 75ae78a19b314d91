#include <qvcore6/file.h>
#include <qvcore6/result.h>

#include <memory>
#include <new>
#include <utility>

#include "platform/error.h"
#include "platform/file.h"

using namespace qv::platform;

namespace
{

constexpr DWORD kPieceBytes = 16384;

class OwnedHandle
{
public:
    OwnedHandle() = default;
    ~OwnedHandle() { Close(); }
    OwnedHandle(const OwnedHandle&) = delete;
    OwnedHandle& operator=(const OwnedHandle&) = delete;

    QVHandle Get() const { return m_handle; }
    QVHandle* Place() { return &m_handle; }
    QVHandle Release() { return std::exchange(m_handle, QV_HANDLE_NONE); }
    void Close()
    {
        if (m_handle != QV_HANDLE_NONE) {
            CloseHandle(Descriptor{Release()});
        }
    }

private:
    QVHandle m_handle = QV_HANDLE_NONE;
};

bool IsSameFile(QVHandle a, QVHandle b)
{
    BY_HANDLE_FILE_INFORMATION first = {};
    BY_HANDLE_FILE_INFORMATION second = {};
    return GetFileInformationByHandle(a, &first) != kFalse &&
           GetFileInformationByHandle(b, &second) != kFalse && first.volume == second.volume &&
           first.index == second.index;
}

// Whether the copy would empty its own source, or follow its own end for ever.
bool DestroysSource(const OwnedHandle& source, const QVWChar* target, uint32_t flags)
{
    OwnedHandle there;
    return (flags & (QV_FILE_TRUNCATE | QV_FILE_APPEND)) != 0 &&
           QVFileOpen(target, 0, 0, there.Place()) >= 0 && IsSameFile(source.Get(), there.Get());
}

// Where a copy ends at the latest: a source that grows as fast as it is copied would have no end.
// What has come until its first end is reached is copied, and no more.
class LastEnd
{
public:
    explicit LastEnd(QVHandle source) : m_source(source), m_first(Size()) {}

    bool IsReached(std::int64_t copied)
    {
        if (m_last < 0 && copied >= m_first && Size() > m_first) {
            m_last = Size();
        }
        return m_last >= 0 && copied >= m_last;
    }

private:
    // 0 for what is no file.
    std::int64_t Size() const
    {
        std::int64_t size = 0;
        GetFileSizeEx(m_source, &size);
        return size;
    }

    QVHandle m_source;
    std::int64_t m_first;
    std::int64_t m_last = -1;
};

// Up to the end of the source, QV_E_END_OF_DATA, or to a failure.
QVRESULT CopyPiece(QVHandle source, QVHandle target, void* buffer, DWORD& count)
{
    if (ReadFile(source, buffer, kPieceBytes, &count, nullptr) == kFalse) {
        return QVResultFromNative(GetLastError());
    }
    if (count == 0) {
        return QV_E_END_OF_DATA;
    }
    DWORD written = 0;
    const BOOL done = WriteFile(target, buffer, count, &written, nullptr);
    if (written != count) {
        return E_FAIL;
    }
    return done != kFalse ? S_OK : QVResultFromNative(GetLastError());
}

QVRESULT CopyContent(QVHandle source, QVHandle target)
{
    const std::unique_ptr<char[]> buffer(new (std::nothrow) char[kPieceBytes]);
    if (buffer == nullptr) {
        return E_OUTOFMEMORY;
    }
    LastEnd end(source);
    std::int64_t copied = 0;
    QVRESULT result = S_OK;
    while (result >= 0 && !end.IsReached(copied)) {
        DWORD count = 0;
        result = CopyPiece(source, target, buffer.get(), count);
        copied += count;
    }
    return result == QV_E_END_OF_DATA ? S_OK : result;
}

} // namespace

QVRESULT QVFileCopy(const QVWChar* source, const QVWChar* target, uint32_t flags, uint32_t mode,
                    QVHandle* handleOut)
{
    if (handleOut != nullptr) {
        *handleOut = QV_HANDLE_NONE;
    }
    OwnedHandle input;
    OwnedHandle output;
    QVRESULT result = QVFileOpen(source, QV_FILE_READ, 0, input.Place());
    if (result < 0) {
        return result;
    }
    if (DestroysSource(input, target, flags)) {
        return QVResultFromNative(ERROR_SHARING_VIOLATION);
    }
    result = QVFileOpen(target, flags | QV_FILE_WRITE, mode, output.Place());
    if (result < 0) {
        return result;
    }
    result = CopyContent(input.Get(), output.Get());
    if (result >= 0 && handleOut != nullptr) {
        *handleOut = output.Release();
    }
    return result;
}
