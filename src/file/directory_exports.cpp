#include <qvcore6/directory.h>
#include <qvcore6/result.h>
#include <qvcore6/str.h>

#include <memory>
#include <string>
#include <utility>

#include "file/posix_times.h"
#include "frame/boundary.h"
#include "platform/directory.h"
#include "platform/error.h"

using namespace qv::core;
using namespace qv::platform;

namespace
{

SearchHandle Find(const std::u16string& pattern, WIN32_FIND_DATAW& data)
{
    return FindFirstFileExW(pattern.c_str(), FindExInfoBasic, &data, FindExSearchNameMatch, nullptr,
                            0);
}

// What a handle is the address of.
class Folder
{
public:
    explicit Folder(std::u16string pattern) : m_pattern(std::move(pattern)) {}
    ~Folder()
    {
        if (m_find != NoSearch()) {
            FindClose(m_find);
        }
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    QVRESULT Read(QVDirEntry& entry);

private:
    void Fill(const WIN32_FIND_DATAW& data, QVDirEntry& entry);

    std::u16string m_pattern;
    SearchHandle m_find = NoSearch(); // until the first read
    PosixTimes m_times;
};

QVRESULT Folder::Read(QVDirEntry& entry)
{
    WIN32_FIND_DATAW data;
    bool isFound = false;
    if (m_find == NoSearch()) {
        m_find = Find(m_pattern, data);
        isFound = m_find != NoSearch();
    } else {
        isFound = FindNextFileW(m_find, &data) != kFalse;
    }
    if (!isFound) {
        return QVResultFromNative(GetLastError());
    }
    Fill(data, entry);
    return S_OK;
}

void Folder::Fill(const WIN32_FIND_DATAW& data, QVDirEntry& entry)
{
    constexpr std::uint32_t kShortNameUnits = 14;
    constexpr std::uint32_t kReadBits = 0444;
    constexpr std::uint32_t kWriteBits = 0222;
    QVStrNCpyW(entry.m_name, data.cFileName, MAX_PATH);
    QVStrNCpyW(entry.m_shortName, data.cAlternateFileName, kShortNameUnits);
    entry.m_mode = kReadBits;
    if ((data.dwFileAttributes & FILE_ATTRIBUTE_READONLY) == 0) {
        entry.m_mode |= kWriteBits;
    }
    if ((data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
        entry.m_mode |= QV_DIR_MODE_DIRECTORY;
    }
    entry.m_sizeHigh = data.nFileSizeHigh;
    entry.m_sizeLow = data.nFileSizeLow;
    m_times.Refresh();
    entry.m_creationTime = m_times.Of(data.ftCreationTime);
    entry.m_accessTime = m_times.Of(data.ftLastAccessTime);
    entry.m_writeTime = m_times.Of(data.ftLastWriteTime);
}

// Null for none, as an open that has failed leaves it.
Folder* FromHandle(QVDir dir)
{
    return dir != QV_DIR_NONE ? reinterpret_cast<Folder*>(dir) : nullptr;
}

std::u16string PatternOf(std::u16string path)
{
    if (!path.empty() && path.back() == u':') {
        return path + u"*";
    }
    path.resize(path.find_last_not_of(u"/\\") + 1);
    return path + u"\\*";
}

QVRESULT ResultOf(BOOL done)
{
    return done != kFalse ? S_OK : QVResultFromNative(GetLastError());
}

} // namespace

QVRESULT QVDirOpen(const QVWChar* path, QVDir* dirOut)
{
    *dirOut = QV_DIR_NONE;
    return Boundary([&] {
        std::u16string pattern = PatternOf(path);
        WIN32_FIND_DATAW data;
        const SearchHandle test = Find(pattern, data);
        if (test == NoSearch()) {
            ThrowLastError();
        }
        FindClose(test);
        *dirOut = reinterpret_cast<QVDir>(std::make_unique<Folder>(std::move(pattern)).release());
    });
}

QVRESULT QVDirRead(QVDir dir, QVDirEntry* entry, uint32_t /*reserved*/)
{
    Folder* const folder = FromHandle(dir);
    return folder != nullptr ? folder->Read(*entry) : E_HANDLE;
}

QVRESULT QVDirClose(QVDir dir)
{
    delete FromHandle(dir);
    return S_OK;
}

QVRESULT QVDirCreate(const QVWChar* path, uint32_t /*mode*/)
{
    return ResultOf(CreateDirectoryW(path, nullptr));
}

QVRESULT QVDirRemove(const QVWChar* path)
{
    return ResultOf(RemoveDirectoryW(path));
}
