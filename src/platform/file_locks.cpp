#include "platform/file_locks.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>

#include "platform/error.h"
#include "platform/file_record.h"
#include "platform/no_cancellation.h"
#include "platform/section_hold.h"

namespace qv::platform
{

namespace
{

// Held for the list of a record and for kernel calls that do not wait. Several, so that files do
// not wait for each other; few, so that a fork can hold them all.
struct Sections
{
    static constexpr std::size_t kCount = 16;
    CRITICAL_SECTION all[kCount];

    CRITICAL_SECTION* Of(Descriptor file) { return &all[static_cast<unsigned>(file) % kCount]; }
};
constinit Sections g_sections{};

using List = std::vector<LockedRange>;

DWORD Call(Descriptor file, int command, short type, std::uint64_t begin, std::uint64_t end)
{
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = static_cast<off_t>(begin);
    lock.l_len = static_cast<off_t>(end - begin);
    int result;
    do {
        result = fcntl(file, command, &lock);
    } while (result != 0 && errno == EINTR);
    return result == 0 ? ERROR_SUCCESS : ErrorFromErrno(errno);
}

DWORD Lock(Descriptor file, int command, const LockedRange& range)
{
    const short type = range.isShared ? F_RDLCK : F_WRLCK;
    return Call(file, command, type, range.begin, range.end);
}

// The descriptor for such locks: the file's own if its rights allow them, else one with both
// rights, opened once. -1 with errno.
Descriptor Place(FileRecord& record, Descriptor file, bool isShared)
{
    const int flags = record.Flags(file);
    const int rights = flags & O_ACCMODE;
    if ((flags & O_PATH) == 0 && (rights == O_RDWR || rights == (isShared ? O_RDONLY : O_WRONLY))) {
        return file;
    }
    if (record.m_lockFile < 0) {
        record.m_lockFile = OpenAgain(file, O_RDWR);
    }
    return record.m_lockFile;
}

// Unlocks what no other range that the handle holds covers.
DWORD UnlockRest(Descriptor place, const LockedRange& range, const List& others)
{
    std::uint64_t begin = range.begin;
    DWORD error = ERROR_SUCCESS;
    while (begin < range.end && error == ERROR_SUCCESS) {
        // The next covered part, and what lies before it.
        std::uint64_t next = range.end;
        std::uint64_t covered = begin;
        for (const LockedRange& other : others) {
            if (!other.isHeld) {
                continue;
            }
            if (other.begin <= begin) {
                covered = std::max(covered, other.end);
            } else {
                next = std::min(next, other.begin);
            }
        }
        if (covered > begin) {
            begin = covered;
        } else {
            error = Call(place, F_OFD_SETLK, F_UNLCK, begin, next);
            begin = next;
        }
    }
    return error;
}

bool IsSame(const LockedRange& a, const LockedRange& b)
{
    return a.begin == b.begin && a.end == b.end;
}

// One handle's request.
class FileLocking
{
public:
    FileLocking(Descriptor file, std::uint64_t begin, std::uint64_t length)
        : m_file(file), m_range{begin, begin + length, false, true}
    {}
    ~FileLocking()
    {
        if (m_duplicate >= 0) {
            CloseDescriptor(m_duplicate);
        }
    }
    FileLocking(const FileLocking&) = delete;
    FileLocking& operator=(const FileLocking&) = delete;

    DWORD Lock(bool isShared, bool waits);
    DWORD Unlock();

private:
    DWORD Find();
    DWORD Enter();
    DWORD Try();
    DWORD BeginWait();
    DWORD Wait();
    DWORD Take();
    // Out of the list, and what it alone covered is unlocked.
    DWORD Leave(List::iterator range);

    Descriptor m_file;
    LockedRange m_range;
    RecordHold<FileRecord> m_record;
    Descriptor m_place = -1;
    Descriptor m_duplicate = -1; // of the place, to wait by
};

// The record, made at the first lock. One that was left behind by a close that the layer has not
// seen would do harm by its ranges, and by the file that it locks in place of the descriptor's.
DWORD FileLocking::Find()
{
    m_record = FindRecordOf<FileRecord>(m_file);
    if (m_record &&
        ((m_record->m_ranges.empty() && m_record->m_lockFile < 0) || m_record->IsOf(m_file))) {
        return ERROR_SUCCESS;
    }
    if (!m_record && FindRecord(m_file)) {
        return ERROR_INVALID_HANDLE; // of something that is no file
    }
    struct stat status = {};
    if (fstat(m_file, &status) != 0) {
        return ErrorFromErrno(errno);
    }
    m_record = RecordHold<FileRecord>(new (std::nothrow) FileRecord(status));
    if (!m_record) {
        return ERROR_OUTOFMEMORY;
    }
    return PutRecord(m_file, RecordHold<DescriptorRecord>(&*m_record));
}

DWORD FileLocking::Lock(bool isShared, bool waits)
{
    m_range.isShared = isShared;
    m_range.isHeld = !waits;
    DWORD error = Enter();
    while (error == ERROR_IO_PENDING) {
        error = Wait();
    }
    return error;
}

DWORD FileLocking::Enter()
{
    const SectionHold locked(g_sections.Of(m_file));
    if (const DWORD error = Find()) {
        return error;
    }
    const DWORD error = Try();
    if (error != ERROR_INVALID_HANDLE || m_record->IsOf(m_file)) {
        return error;
    }
    TakeRecord(m_file); // another file's, with other rights
    const DWORD found = Find();
    return found == ERROR_SUCCESS ? Try() : found;
}

DWORD FileLocking::Try()
{
    if (m_range.begin == m_range.end) {
        return ERROR_SUCCESS;
    }
    List& ranges = m_record->m_ranges;
    const bool meetsOwn = std::any_of(ranges.begin(), ranges.end(), [&](const LockedRange& own) {
        return own.Meets(m_range) && !(own.isShared && m_range.isShared);
    });
    if (meetsOwn) {
        return ERROR_LOCK_VIOLATION;
    }
    m_place = Place(*m_record, m_file, m_range.isShared);
    if (m_place < 0) {
        return ErrorFromErrno(errno);
    }
    try {
        ranges.push_back(m_range);
    } catch (const std::bad_alloc&) {
        return ERROR_OUTOFMEMORY;
    }
    const DWORD error = qv::platform::Lock(m_place, F_OFD_SETLK, m_range);
    if (error == ERROR_SUCCESS) {
        ranges.back().isHeld = true;
    } else if (error == ERROR_LOCK_VIOLATION && !m_range.isHeld) {
        return BeginWait();
    } else {
        ranges.pop_back();
    }
    return error;
}

// The range stays in the list, so that no other request of the handle meets it.
DWORD FileLocking::BeginWait()
{
    m_duplicate = fcntl(m_place, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (m_duplicate < 0) {
        const DWORD error = ErrorFromErrno(errno);
        m_record->m_ranges.pop_back();
        return error;
    }
    // Should the handle be closed meanwhile, its number may become another file's.
    m_place = m_duplicate;
    return ERROR_IO_PENDING;
}

DWORD FileLocking::Wait()
{
    DWORD error = qv::platform::Lock(m_place, F_OFD_SETLKW, m_range);
    const SectionHold locked(g_sections.Of(m_file));
    if (error == ERROR_SUCCESS) {
        const RecordHold<FileRecord> now = FindRecordOf<FileRecord>(m_file);
        error = now && &*now == &*m_record ? Take() : ERROR_INVALID_HANDLE; // closed meanwhile
    }
    List& ranges = m_record->m_ranges;
    const auto waiting = std::find_if(ranges.begin(), ranges.end(), [&](const LockedRange& range) {
        return IsSame(range, m_range) && !range.isHeld && range.isShared == m_range.isShared;
    });
    if (error == ERROR_SUCCESS) {
        waiting->isHeld = true;
    } else if (error != ERROR_IO_PENDING) {
        Leave(waiting);
    }
    return error;
}

// Once more: before the list knew of the range, an unlock may have taken a part of it away.
DWORD FileLocking::Take()
{
    const DWORD error = qv::platform::Lock(m_place, F_OFD_SETLK, m_range);
    if (error != ERROR_LOCK_VIOLATION) {
        return error;
    }
    UnlockRest(m_place, m_range, m_record->m_ranges); // no wait with a part in hand
    return ERROR_IO_PENDING;
}

DWORD FileLocking::Leave(List::iterator range)
{
    List& ranges = m_record->m_ranges;
    const LockedRange gone = *range;
    ranges.erase(range);
    return UnlockRest(m_place, gone, ranges);
}

DWORD FileLocking::Unlock()
{
    const SectionHold locked(g_sections.Of(m_file));
    m_record = FindRecordOf<FileRecord>(m_file);
    if (!m_record) {
        return fcntl(m_file, F_GETFD) < 0     ? ERROR_INVALID_HANDLE
               : m_range.begin == m_range.end ? ERROR_SUCCESS
                                              : ERROR_NOT_LOCKED;
    }
    if (m_range.begin == m_range.end) {
        return ERROR_SUCCESS;
    }
    List& ranges = m_record->m_ranges;
    const auto own = std::find_if(ranges.begin(), ranges.end(), [&](const LockedRange& range) {
        return IsSame(range, m_range) && range.isHeld;
    });
    if (own == ranges.end()) {
        return ERROR_NOT_LOCKED;
    }
    m_place = Place(*m_record, m_file, own->isShared);
    return Leave(own);
}

std::uint64_t Joined(DWORD low, DWORD high)
{
    return std::uint64_t{high} << 32 | low;
}

template <class Work>
BOOL Do(Descriptor file, std::uint64_t offset, std::uint64_t length, Work work)
{
    const KeepErrno keep;
    const NoCancellation noCancellation;
    std::uint64_t end = 0;
    DWORD error = ERROR_INVALID_PARAMETER;
    if (!__builtin_add_overflow(offset, length, &end) && end <= INT64_MAX) {
        FileLocking locking(file, offset, length);
        error = work(locking);
    }
    if (error != ERROR_SUCCESS) {
        SetLastError(error);
        return kFalse;
    }
    return kTrue;
}

} // namespace

BOOL LockFileEx(Descriptor file, DWORD flags, DWORD /*reserved*/, DWORD lengthLow, DWORD lengthHigh,
                const OVERLAPPED* offset)
{
    const bool isShared = (flags & LOCKFILE_EXCLUSIVE_LOCK) == 0;
    const bool waits = (flags & LOCKFILE_FAIL_IMMEDIATELY) == 0;
    return Do(file, Joined(offset->Offset, offset->OffsetHigh), Joined(lengthLow, lengthHigh),
              [&](FileLocking& locking) { return locking.Lock(isShared, waits); });
}

BOOL UnlockFileEx(Descriptor file, DWORD /*reserved*/, DWORD lengthLow, DWORD lengthHigh,
                  const OVERLAPPED* offset)
{
    return UnlockFile(file, offset->Offset, offset->OffsetHigh, lengthLow, lengthHigh);
}

BOOL LockFile(Descriptor file, DWORD offsetLow, DWORD offsetHigh, DWORD lengthLow, DWORD lengthHigh)
{
    return Do(file, Joined(offsetLow, offsetHigh), Joined(lengthLow, lengthHigh),
              [](FileLocking& locking) { return locking.Lock(false, false); });
}

BOOL UnlockFile(Descriptor file, DWORD offsetLow, DWORD offsetHigh, DWORD lengthLow,
                DWORD lengthHigh)
{
    return Do(file, Joined(offsetLow, offsetHigh), Joined(lengthLow, lengthHigh),
              [](FileLocking& locking) { return locking.Unlock(); });
}

void DropRanges(FileRecord& record, Descriptor file)
{
    const KeepErrno keep;
    const SectionHold locked(g_sections.Of(file));
    for (const LockedRange& range : record.m_ranges) {
        if (range.isHeld && record.IsOwn()) {
            Call(Place(record, file, range.isShared), F_OFD_SETLK, F_UNLCK, range.begin, range.end);
        }
    }
    std::erase_if(record.m_ranges, [](const LockedRange& range) { return range.isHeld; });
}

void HoldFileLocks()
{
    for (CRITICAL_SECTION& section : g_sections.all) {
        EnterCriticalSection(&section);
    }
}

void ReleaseFileLocks()
{
    for (CRITICAL_SECTION& section : g_sections.all) {
        LeaveCriticalSection(&section);
    }
}

} // namespace qv::platform
