#include "platform/directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

#include "platform/descriptor_handle.h"
#include "platform/error.h"
#include "platform/find_pattern.h"
#include "platform/native_path.h"
#include "platform/no_cancellation.h"
#include "platform/path_text.h"

namespace qv::platform
{

namespace
{

// Where an entry of the kernel's has its parts: its size in bytes, its type, its terminated name.
// They start at multiples of eight.
constexpr std::size_t kEntrySize = 16;
constexpr std::size_t kEntryType = 18;
constexpr std::size_t kEntryName = 19;

BOOL Answer(DWORD error)
{
    if (error != ERROR_SUCCESS) {
        SetLastError(error);
        return kFalse;
    }
    return kTrue;
}

// A time that the steps since 1601 cannot count becomes one that nothing can show.
FILETIME TimeOf(const statx_timestamp& time)
{
    constexpr std::int64_t kPosixEpoch = 116444736000000000;
    std::int64_t steps = 0;
    const bool isCounted =
        !__builtin_mul_overflow(time.tv_sec, std::int64_t{10'000'000}, &steps) &&
        !__builtin_add_overflow(steps, kPosixEpoch + time.tv_nsec / 100, &steps) && steps >= 0;
    const std::uint64_t shown = isCounted ? static_cast<std::uint64_t>(steps) : ~std::uint64_t{0};
    return {static_cast<DWORD>(shown), static_cast<DWORD>(shown >> 32)};
}

bool IsEarlier(const statx_timestamp& a, const statx_timestamp& b)
{
    return a.tv_sec != b.tv_sec ? a.tv_sec < b.tv_sec : a.tv_nsec < b.tv_nsec;
}

// Not every file system keeps it.
const statx_timestamp& CreationOf(const struct statx& file)
{
    if ((file.stx_mask & STATX_BTIME) != 0) {
        return file.stx_btime;
    }
    return IsEarlier(file.stx_mtime, file.stx_ctime) ? file.stx_mtime : file.stx_ctime;
}

void Describe(const struct statx& file, WIN32_FIND_DATAW& data)
{
    const bool isFolder = S_ISDIR(file.stx_mode);
    const bool isReadOnly = (file.stx_mode & 0222) == 0;
    data.dwFileAttributes =
        (isFolder ? FILE_ATTRIBUTE_DIRECTORY : 0) | (isReadOnly ? FILE_ATTRIBUTE_READONLY : 0);
    if (data.dwFileAttributes == 0) {
        data.dwFileAttributes = FILE_ATTRIBUTE_NORMAL;
    }
    const std::uint64_t size = isFolder ? 0 : file.stx_size;
    data.nFileSizeHigh = static_cast<DWORD>(size >> 32);
    data.nFileSizeLow = static_cast<DWORD>(size);
    data.ftCreationTime = TimeOf(CreationOf(file));
    data.ftLastAccessTime = TimeOf(file.stx_atime);
    data.ftLastWriteTime = TimeOf(file.stx_mtime);
}

void DescribeByType(std::uint8_t type, WIN32_FIND_DATAW& data)
{
    constexpr FILETIME kUnknown = {~DWORD{0}, ~DWORD{0}};
    data.dwFileAttributes = type == DT_DIR ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_NORMAL;
    data.nFileSizeHigh = 0;
    data.nFileSizeLow = 0;
    data.ftCreationTime = data.ftLastAccessTime = data.ftLastWriteTime = kUnknown;
}

} // namespace

// Reads the folder in large pieces into itself: its memory does not depend on the folder's.
class FolderSearch
{
public:
    FolderSearch(Descriptor folder, const FindPattern& pattern)
        : m_folder(folder), m_pattern(pattern)
    {}
    ~FolderSearch() { CloseDescriptor(m_folder); }
    FolderSearch(const FolderSearch&) = delete;
    FolderSearch& operator=(const FolderSearch&) = delete;

    // Error 18 at the end.
    DWORD Next(WIN32_FIND_DATAW& data);

private:
    struct Entry
    {
        const char* name;
        std::uint8_t type;
    };

    // The next name of the folder, "." and ".." before the others. Error 18 at the end.
    DWORD Take(Entry& entry);
    DWORD Refill();
    // False if the entry has gone.
    bool Look(const Entry& entry, WIN32_FIND_DATAW& data) const;

    Descriptor m_folder;
    FindPattern m_pattern;
    int m_dots = 0;          // how many of the first two have come
    bool m_hasEnded = false; // some file systems go on when entries come later
    std::size_t m_at = 0;
    std::size_t m_end = 0;
    alignas(8) char m_piece[32 * 1024];
};

DWORD FolderSearch::Next(WIN32_FIND_DATAW& data)
{
    for (;;) {
        Entry entry = {};
        if (const DWORD error = Take(entry)) {
            return error;
        }
        const std::size_t length =
            FilePathFromBytes(entry.name, data.cFileName, std::size(data.cFileName) - 1);
        if (length >= std::size(data.cFileName)) {
            continue; // and no path of such a length could be opened
        }
        data.cFileName[length] = 0;
        if (m_pattern.Matches({data.cFileName, length}) && Look(entry, data)) {
            data.dwReserved0 = data.dwReserved1 = 0;
            data.cAlternateFileName[0] = 0;
            return ERROR_SUCCESS;
        }
    }
}

DWORD FolderSearch::Take(Entry& entry)
{
    if (m_dots < 2) {
        entry = {m_dots++ == 0 ? "." : "..", DT_DIR};
        return ERROR_SUCCESS;
    }
    for (;;) {
        if (m_at == m_end) {
            if (const DWORD error = Refill()) {
                return error;
            }
        }
        const char* const next = m_piece + m_at;
        const char* const name = next + kEntryName;
        std::uint16_t size = 0;
        std::memcpy(&size, next + kEntrySize, sizeof size);
        m_at += size;
        if (std::strcmp(name, ".") != 0 && std::strcmp(name, "..") != 0) {
            entry = {name, static_cast<std::uint8_t>(next[kEntryType])};
            return ERROR_SUCCESS;
        }
    }
}

DWORD FolderSearch::Refill()
{
    long size;
    do {
        size = syscall(SYS_getdents64, m_folder, m_piece, sizeof m_piece);
    } while (size < 0 && errno == EINTR);
    // A folder that has been removed meanwhile has nothing more in it.
    m_hasEnded = m_hasEnded || size == 0 || (size < 0 && errno == ENOENT);
    if (m_hasEnded) {
        return ERROR_NO_MORE_FILES;
    }
    if (size < 0) {
        return ErrorFromErrno(errno);
    }
    m_at = 0;
    m_end = static_cast<std::size_t>(size);
    return ERROR_SUCCESS;
}

bool FolderSearch::Look(const Entry& entry, WIN32_FIND_DATAW& data) const
{
    // Looking at what could be mounted mounts nothing, as with stat.
    struct statx file;
    const auto ask = [&](int flags) {
        int result;
        do {
            result = statx(m_folder, entry.name, flags | AT_NO_AUTOMOUNT,
                           STATX_BASIC_STATS | STATX_BTIME, &file);
        } while (result != 0 && errno == EINTR);
        return result == 0;
    };
    // A link that leads nowhere, or in circles, is there by itself.
    if (ask(0) || ask(AT_SYMLINK_NOFOLLOW)) {
        Describe(file, data);
        return true;
    }
    DescribeByType(entry.type, data);
    return errno != ENOENT;
}

namespace
{

// A file in the folder's own place is told from one farther up.
DWORD ErrorOfOpen(const NativePath& folder, int error)
{
    const bool isFile = error == ENOTDIR && MissingFile(folder) == ERROR_FILE_NOT_FOUND;
    return isFile            ? ERROR_DIRECTORY
           : error == ENOENT ? ERROR_PATH_NOT_FOUND
                             : ErrorFromErrno(error);
}

// Splits a pattern into the folder and what stands behind it.
DWORD OpenSearch(std::u16string_view whole, std::unique_ptr<FolderSearch>& search)
{
    const std::size_t name = whole.find_last_of(u"/\\") + 1; // 0 if there is no separator
    const std::u16string_view folder = name == 0 ? u"." : whole.substr(0, name);
    NativePath path;
    FindPattern pattern;
    if (const DWORD error = path.Set(folder)) {
        return error;
    }
    if (!pattern.Set(whole.substr(name))) {
        return ERROR_FILENAME_EXCED_RANGE;
    }
    const Descriptor opened = OpenPath(path.Text(), O_RDONLY | O_DIRECTORY);
    if (opened < 0) {
        return ErrorOfOpen(path, errno);
    }
    search.reset(new (std::nothrow) FolderSearch(opened, pattern));
    if (search == nullptr) {
        CloseDescriptor(opened);
        return ERROR_OUTOFMEMORY;
    }
    return ERROR_SUCCESS;
}

} // namespace

SearchHandle FindFirstFileExW(const WCHAR* pattern, int /*level*/, WIN32_FIND_DATAW* data,
                              int /*operation*/, void* /*filter*/, DWORD /*flags*/)
{
    const KeepErrno keep;
    const NoCancellation noCancellation;
    std::unique_ptr<FolderSearch> search;
    DWORD error = OpenSearch(pattern, search);
    if (error == ERROR_SUCCESS) {
        error = search->Next(*data);
    }
    if (error != ERROR_SUCCESS) {
        SetLastError(error == ERROR_NO_MORE_FILES ? ERROR_FILE_NOT_FOUND : error);
        return NoSearch();
    }
    return search.release();
}

BOOL FindNextFileW(SearchHandle search, WIN32_FIND_DATAW* data)
{
    const KeepErrno keep;
    return Answer(search->Next(*data));
}

BOOL FindClose(SearchHandle search)
{
    if (search == nullptr || search == NoSearch()) {
        return Answer(ERROR_INVALID_HANDLE);
    }
    delete search;
    return kTrue;
}

BOOL CreateDirectoryW(const WCHAR* path, const SECURITY_ATTRIBUTES* /*attributes*/)
{
    const KeepErrno keep;
    NativePath folder;
    DWORD error = folder.Set(path);
    if (error == ERROR_SUCCESS && mkdir(folder.Text(), 0777) != 0) {
        error = errno == ENOENT ? ERROR_PATH_NOT_FOUND : ErrorFromErrno(errno);
    }
    return Answer(error);
}

BOOL RemoveDirectoryW(const WCHAR* path)
{
    const KeepErrno keep;
    NativePath folder;
    DWORD error = folder.Set(path);
    struct stat found = {};
    if (error == ERROR_SUCCESS && lstat(folder.Text(), &found) != 0) {
        error = errno == ENOENT ? MissingFile(folder) : ErrorFromErrno(errno);
    } else if (error == ERROR_SUCCESS && !S_ISDIR(found.st_mode)) {
        error = ERROR_DIRECTORY;
    } else if (error == ERROR_SUCCESS && (found.st_mode & 0222) == 0) {
        error = ERROR_ACCESS_DENIED; // as of files, also for the superuser
    } else if (error == ERROR_SUCCESS && rmdir(folder.Text()) != 0) {
        // "." cannot be removed by that name, and some systems say EEXIST for what is not empty.
        error = errno == EINVAL   ? ERROR_SHARING_VIOLATION
                : errno == EEXIST ? ERROR_DIR_NOT_EMPTY
                : errno == ENOENT ? MissingFile(folder)
                                  : ErrorFromErrno(errno);
    }
    return Answer(error);
}

} // namespace qv::platform
