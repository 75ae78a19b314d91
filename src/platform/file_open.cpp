#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <utility>

#include "platform/error.h"
#include "platform/file.h"
#include "platform/file_record.h"
#include "platform/native_path.h"
#include "platform/quiet_write.h"

namespace qv::platform
{

namespace
{

constexpr mode_t kMayWrite = 0222;

// An open file on its way to the caller.
class Opened
{
public:
    Opened() = default;
    ~Opened()
    {
        if (m_file >= 0) {
            CloseDescriptor(m_file);
        }
    }
    Opened(const Opened&) = delete;
    Opened& operator=(const Opened&) = delete;

    // In place of what it holds, if there is something to hold. False with errno.
    bool Hold(Descriptor file)
    {
        if (file >= 0) {
            if (m_file >= 0) {
                CloseDescriptor(m_file);
            }
            m_file = file;
        }
        return file >= 0;
    }

    Descriptor Get() const { return m_file; }
    Descriptor Release() { return std::exchange(m_file, -1); }

private:
    Descriptor m_file = -1;
};

class FileOpening
{
public:
    FileOpening(DWORD access, DWORD disposition, DWORD attributes)
        : m_disposition(disposition), m_attributes(attributes),
          m_reads((access & GENERIC_READ) != 0), m_writes((access & GENERIC_WRITE) != 0)
    {}

    DWORD Open(const WCHAR* path);
    bool WasThere() const { return m_wasThere; }
    Descriptor Release() { return m_file.Release(); }

private:
    bool MayCreate() const
    {
        return m_disposition != OPEN_EXISTING && m_disposition != TRUNCATE_EXISTING;
    }
    bool Truncates() const
    {
        return m_disposition == CREATE_ALWAYS || m_disposition == TRUNCATE_EXISTING;
    }
    bool IsOnlyRead() const { return m_reads && !m_writes && !Truncates() && !DeletesOnClose(); }
    bool DeletesOnClose() const { return (m_attributes & FILE_FLAG_DELETE_ON_CLOSE) != 0; }
    int Flags() const;
    DWORD OpenOrCreate();
    DWORD Finish();
    bool MayBeFolder() const;
    bool Create(int more);
    DWORD ErrorOfOpen(int error, bool creates) const;
    DWORD CheckExisting(const struct stat& file);
    DWORD Truncate();
    DWORD MakeRecord(const struct stat& file);
    DWORD TakeRightsAway();

    DWORD m_disposition;
    DWORD m_attributes;
    bool m_reads;
    bool m_writes;
    bool m_wasThere = false;
    bool m_isMade = false; // by this opening, beyond doubt
    NativePath m_path;
    Opened m_file;
};

// Without either right the descriptor is none for data at all.
int FileOpening::Flags() const
{
    const int rights = m_reads && m_writes ? O_RDWR
                       : m_writes          ? O_WRONLY
                       : m_reads           ? O_RDONLY
                                           : O_PATH;
    return rights | ((m_attributes & FILE_FLAG_WRITE_THROUGH) != 0 ? O_SYNC : 0);
}

DWORD FileOpening::Open(const WCHAR* path)
{
    if (m_disposition < CREATE_NEW || m_disposition > TRUNCATE_EXISTING ||
        (m_disposition == TRUNCATE_EXISTING && !m_writes)) {
        return ERROR_INVALID_PARAMETER;
    }
    if (const DWORD error = m_path.Set(path)) {
        return error;
    }
    if (const DWORD error = OpenOrCreate()) {
        return error;
    }
    const DWORD error = Finish();
    if (error != ERROR_SUCCESS && m_isMade) {
        unlink(m_path.Text()); // nobody has asked for a file that cannot be used
    }
    return error;
}

DWORD FileOpening::Finish()
{
    if (m_wasThere && IsOnlyRead() && !MayBeFolder()) {
        BeginDescriptor(m_file.Get());
        return ERROR_SUCCESS;
    }
    struct stat file = {};
    if (!m_wasThere && !DeletesOnClose()) {
        file.st_mode = S_IFREG; // nothing else is made here
    } else if (fstat(m_file.Get(), &file) != 0) {
        return ErrorFromErrno(errno);
    }
    if (const DWORD error = m_wasThere ? CheckExisting(file) : TakeRightsAway()) {
        return error;
    }
    BeginDescriptor(m_file.Get());
    if (DeletesOnClose()) {
        if (const DWORD error = MakeRecord(file)) {
            return error;
        }
    }
    MarkPlain(m_file.Get(), S_ISREG(file.st_mode) && !HasFileLimit());
    return ERROR_SUCCESS;
}

// Asks what can be read at once, which no folder can answer: less than half as dear as asking for
// the file's type. What cannot answer either may be no folder.
bool FileOpening::MayBeFolder() const
{
    int readable = 0;
    return ioctl(m_file.Get(), FIONREAD, &readable) != 0;
}

DWORD FileOpening::OpenOrCreate()
{
    // The two steps chase each other while another process makes and removes the file.
    constexpr int kAttempts = 16;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        if (m_disposition != CREATE_NEW) {
            m_wasThere = m_file.Hold(OpenPath(m_path.Text(), Flags()));
            if (m_wasThere) {
                return ERROR_SUCCESS;
            }
            if (errno != ENOENT || !MayCreate()) {
                return ErrorOfOpen(errno, false);
            }
        }
        m_isMade = Create(O_EXCL);
        if (m_isMade) {
            return ERROR_SUCCESS;
        }
        if (errno != EEXIST || m_disposition == CREATE_NEW) {
            return ErrorOfOpen(errno, true);
        }
    }
    // A link that leads nowhere is there and is not, for ever: its target is made.
    return Create(0) ? ERROR_SUCCESS : ErrorOfOpen(errno, true);
}

bool FileOpening::Create(int more)
{
    const bool isReadOnly = (m_attributes & FILE_ATTRIBUTE_READONLY) != 0;
    const int flags = (Flags() & O_PATH) != 0 ? O_RDONLY : Flags(); // the other one makes nothing
    return m_file.Hold(OpenPath(m_path.Text(), flags | O_CREAT | more, isReadOnly ? 0444 : 0666));
}

DWORD FileOpening::ErrorOfOpen(int error, bool creates) const
{
    if (m_path.EndsInSeparator() && (error == ENOTDIR || (error == EISDIR && creates))) {
        return ERROR_INVALID_NAME;
    }
    if (error == EEXIST) {
        return ERROR_FILE_EXISTS;
    }
    return error == ENOENT ? MissingFile(m_path) : ErrorFromErrno(error);
}

DWORD FileOpening::CheckExisting(const struct stat& file)
{
    if (S_ISDIR(file.st_mode)) {
        return ERROR_ACCESS_DENIED;
    }
    // By the layer, as the kernel lets the superuser pass.
    const bool changes = m_writes || Truncates() || DeletesOnClose();
    if (changes && (file.st_mode & kMayWrite) == 0) {
        return ERROR_ACCESS_DENIED;
    }
    return Truncates() && S_ISREG(file.st_mode) ? Truncate() : ERROR_SUCCESS;
}

// After all checks, where the flag of the opening would come before them.
DWORD FileOpening::Truncate()
{
    Opened writable;
    if (!m_writes && !writable.Hold(OpenAgain(m_file.Get(), O_WRONLY))) {
        return ErrorFromErrno(errno);
    }
    const Descriptor file = m_writes ? m_file.Get() : writable.Get();
    int result;
    do {
        result = ftruncate(file, 0);
    } while (result != 0 && errno == EINTR);
    return result == 0 ? ERROR_SUCCESS : ErrorFromErrno(errno);
}

DWORD FileOpening::MakeRecord(const struct stat& file)
{
    RecordHold<FileRecord> record(new (std::nothrow) FileRecord(file));
    if (!record) {
        return ERROR_OUTOFMEMORY;
    }
    if (const DWORD error = record->RememberName(m_file.Get(), m_path.Text())) {
        return error;
    }
    return PutRecord(m_file.Get(), std::move(record));
}

// From a file that had to be opened for reading to come into being.
DWORD FileOpening::TakeRightsAway()
{
    if (m_reads || m_writes) {
        return ERROR_SUCCESS;
    }
    return m_file.Hold(OpenAgain(m_file.Get(), O_PATH)) ? ERROR_SUCCESS : ErrorFromErrno(errno);
}

} // namespace

Descriptor CreateFileW(const WCHAR* path, DWORD access, DWORD /*share*/,
                       const SECURITY_ATTRIBUTES* /*attributes*/, DWORD disposition,
                       DWORD flagsAndAttributes, void* /*templateFile*/)
{
    const KeepErrno keep;
    FileOpening opening(access, disposition, flagsAndAttributes);
    if (const DWORD error = opening.Open(path)) {
        SetLastError(error);
        return -1;
    }
    if (disposition == CREATE_ALWAYS || disposition == OPEN_ALWAYS) {
        SetLastError(opening.WasThere() ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
    }
    return opening.Release();
}

BOOL DeleteFileW(const WCHAR* path)
{
    const KeepErrno keep;
    NativePath name;
    DWORD error = name.Set(path);
    struct stat file = {};
    if (error == ERROR_SUCCESS && lstat(name.Text(), &file) != 0) {
        error = errno == ENOENT ? MissingFile(name) : ErrorFromErrno(errno);
    } else if (error == ERROR_SUCCESS) {
        const bool isKept =
            S_ISDIR(file.st_mode) || (!S_ISLNK(file.st_mode) && (file.st_mode & kMayWrite) == 0);
        if (isKept) {
            error = ERROR_ACCESS_DENIED;
        } else if (unlink(name.Text()) != 0) {
            error = errno == ENOENT ? MissingFile(name) : ErrorFromErrno(errno);
        }
    }
    if (error != ERROR_SUCCESS) {
        SetLastError(error);
        return kFalse;
    }
    return kTrue;
}

} // namespace qv::platform
