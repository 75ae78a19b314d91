#include "platform/named_object_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <memory>
#include <new>

#include "platform/descriptor_handle.h"
#include "platform/error.h"

namespace qv::platform
{

namespace
{

constexpr std::uint32_t kMagic = 0x4F435651; // "QVCO"
constexpr std::uint32_t kVersion = 1;
constexpr std::int64_t kFirstSlot = 16; // behind the bytes that have names
constexpr std::uint32_t kSlots = 1 << 16;

template <class Call> auto Retried(Call call)
{
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

DWORD LastErrno()
{
    return ErrorFromErrno(errno);
}

struct flock RequestOf(std::int64_t byte, int type)
{
    struct flock lock = {};
    lock.l_type = static_cast<short>(type);
    lock.l_whence = SEEK_SET;
    lock.l_start = byte;
    lock.l_len = 1;
    return lock;
}

FileIdentity IdentityOf(const struct stat& status)
{
    return {.device = status.st_dev, .node = status.st_ino};
}

void FillHead(NamedHead* head, std::u16string_view name, NamedKind kind,
              const NamedContent& content)
{
    head->magic = kMagic;
    head->version = kVersion;
    head->kind = kind;
    head->nameUnits = static_cast<std::uint32_t>(name.size());
    std::copy(name.begin(), name.end(), head->name);
    head->dataSize = content.dataSize;
    head->limit = content.limit;
    head->word.store(content.word, std::memory_order_relaxed);
}

// Everybody but the identity that stands for unknown users.
struct Acl
{
    struct Entry
    {
        std::uint16_t tag;
        std::uint16_t rights;
        std::uint32_t id;
    };
    std::uint32_t version;
    Entry entries[5];
};

constexpr std::uint16_t kReadWrite = 6;
constexpr std::uint32_t kNoId = 0xFFFFFFFF;
constexpr std::uint32_t kOverflowUser = 65534;
constexpr Acl kAuthenticated = {2,
                                {{0x01, kReadWrite, kNoId},
                                 {0x02, 0, kOverflowUser},
                                 {0x04, kReadWrite, kNoId},
                                 {0x10, kReadWrite, kNoId},
                                 {0x20, kReadWrite, kNoId}}};

} // namespace

ObjectFile::~ObjectFile()
{
    if (m_file >= 0) {
        // Not left to the close: in another process the open file may live on, and its locks with
        // it. The gate goes last: who is through it takes a locked life for a holder.
        Unlock(ObjectByte::Life);
        Unlock(ObjectByte::Gate);
        close(m_file);
    }
}

DWORD ObjectFile::Open(const ObjectPath& path)
{
    // Non-blocking for what may lie there instead: a device, or a file under a lease.
    constexpr int kFlags = O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
    m_file = AboveStandardNumbers(Retried([&] { return open(path.Text(), kFlags); }));
    if (m_file < 0) {
        switch (errno) {
        case ELOOP:
            return ERROR_ACCESS_DENIED;
        case EWOULDBLOCK:
            return ERROR_SHARING_VIOLATION;
        case ENXIO: // a socket
        case ENODEV:
            return ERROR_INVALID_HANDLE;
        default:
            return LastErrno();
        }
    }
    return ERROR_SUCCESS;
}

DWORD ObjectFile::Make(Audience audience, std::u16string_view name, NamedKind kind,
                       const NamedContent& content)
{
    constexpr int kFlags = O_TMPFILE | O_RDWR | O_CLOEXEC;
    m_file = AboveStandardNumbers(
        Retried([] { return open(kObjectFolder, kFlags, S_IRUSR | S_IWUSR); }));
    if (m_file < 0) {
        return errno == ENOENT ? ERROR_PATH_NOT_FOUND : LastErrno();
    }
    Admit(audience);
    return Fill(name, kind, content);
}

// Of what is refused here, the creator at least has its own rights: the mode only widens them.
void ObjectFile::Admit(Audience audience) const
{
    if (audience == Audience::Nobody) {
        return;
    }
    constexpr mode_t kForAll = S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH;
    fchmod(m_file, kForAll);
    if (audience == Audience::Authenticated) {
        fsetxattr(m_file, "system.posix_acl_access", &kAuthenticated, sizeof kAuthenticated, 0);
    }
}

DWORD ObjectFile::Link(const ObjectPath& path) const
{
    char self[32];
    std::snprintf(self, sizeof self, "/proc/self/fd/%d", m_file);
    if (linkat(AT_FDCWD, self, AT_FDCWD, path.Text(), AT_SYMLINK_FOLLOW) == 0) {
        return ERROR_SUCCESS;
    }
    return errno == EEXIST ? kTryAgain : LastErrno();
}

DWORD ObjectFile::Allocate(std::uint64_t size) const
{
    // Passing this limit ends the process by a signal.
    struct rlimit limit = {};
    if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && size > limit.rlim_cur) {
        return ERROR_FILE_TOO_LARGE;
    }
    // Taken now: a full file system is an error here, and would be a signal later. Piece by piece:
    // a signal undoes the call that it interrupts, and a timer's could do so for ever.
    constexpr std::uint64_t kPiece = 1 << 20;
    for (std::uint64_t at = 0; at < size; at += kPiece) {
        const auto start = static_cast<off_t>(at);
        const auto length = static_cast<off_t>(std::min(kPiece, size - at));
        if (Retried([&] { return fallocate(m_file, 0, start, length); }) != 0) {
            return LastErrno();
        }
    }
    return ERROR_SUCCESS;
}

DWORD ObjectFile::Fill(std::u16string_view name, NamedKind kind, const NamedContent& content) const
{
    Empty();
    if (content.dataSize > static_cast<std::uint64_t>(INT64_MAX) - kNamedHeadSize) {
        return ERROR_DISK_FULL;
    }
    if (const DWORD error = Allocate(kNamedHeadSize + content.dataSize)) {
        Empty();
        return error;
    }
    NamedHead head = {};
    FillHead(&head, name, kind, content);
    const auto written = Retried([&] { return pwrite(m_file, &head, sizeof head, 0); });
    if (written == static_cast<ssize_t>(sizeof head)) {
        return ERROR_SUCCESS;
    }
    const DWORD error = written < 0 ? LastErrno() : ERROR_DISK_FULL;
    Empty();
    return error;
}

void ObjectFile::Empty() const
{
    Retried([&] { return ftruncate(m_file, 0); });
}

void ObjectFile::FreeMemory() const
{
    constexpr int kMode = FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE;
    constexpr off_t kMoreThanAll = off_t{1} << 40;
    Retried([&] { return fallocate(m_file, kMode, 0, kMoreThanAll); });
}

DWORD ObjectFile::Lock(std::int64_t byte, int type) const
{
    struct flock lock = RequestOf(byte, type);
    if (Retried([&] { return fcntl(m_file, F_OFD_SETLK, &lock); }) == 0) {
        return ERROR_SUCCESS;
    }
    return errno == EAGAIN || errno == EACCES ? kTryAgain : LastErrno();
}

DWORD ObjectFile::LockForWriting(ObjectByte byte) const
{
    return Lock(static_cast<std::int64_t>(byte), F_WRLCK);
}

DWORD ObjectFile::LockForReading(ObjectByte byte) const
{
    return Lock(static_cast<std::int64_t>(byte), F_RDLCK);
}

void ObjectFile::Unlock(ObjectByte byte) const
{
    Lock(static_cast<std::int64_t>(byte), F_UNLCK);
}

ObjectFile::Others ObjectFile::OthersAt(ObjectByte byte) const
{
    return OthersAtByte(static_cast<std::int64_t>(byte));
}

DWORD ObjectFile::TakeSlot(std::uint32_t* slot) const
{
    for (std::uint32_t number = 0; number < kSlots; ++number) {
        const DWORD error = Lock(kFirstSlot + number, F_WRLCK);
        if (error != kTryAgain) {
            *slot = number;
            return error;
        }
    }
    return ERROR_GEN_FAILURE;
}

bool ObjectFile::IsSlotTaken(std::uint32_t slot) const
{
    return OthersAtByte(kFirstSlot + slot) != Others::None;
}

ObjectFile::Others ObjectFile::OthersAtByte(std::int64_t byte) const
{
    struct flock lock = RequestOf(byte, F_WRLCK);
    if (Retried([&] { return fcntl(m_file, F_OFD_GETLK, &lock); }) != 0 || lock.l_type == F_UNLCK) {
        return Others::None;
    }
    return lock.l_type == F_RDLCK ? Others::Reading : Others::Writing;
}

DWORD ObjectFile::Look(FileState* state) const
{
    struct stat status = {};
    if (fstat(m_file, &status) != 0) {
        return LastErrno();
    }
    *state = {.identity = IdentityOf(status),
              .size = static_cast<std::uint64_t>(status.st_size),
              .hasName = status.st_nlink != 0,
              .changed = status.st_mtime};
    return S_ISREG(status.st_mode) ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
}

bool ObjectFile::IsAt(const ObjectPath& path, const FileIdentity& identity)
{
    struct stat status = {};
    return lstat(path.Text(), &status) == 0 && IdentityOf(status) == identity;
}

DWORD ObjectFile::Test(std::u16string_view name, NamedKind kind, const FileState& state,
                       std::uint64_t* dataSize) const
{
    NamedHead head = {};
    const auto count = Retried([&] { return pread(m_file, &head, sizeof head, 0); });
    if (count < 0) {
        return LastErrno();
    }
    if (head.magic == 0) {
        return kTryAgain;
    }
    const bool isWhole = count == static_cast<ssize_t>(sizeof head) &&
                         state.size >= kNamedHeadSize &&
                         head.dataSize <= state.size - kNamedHeadSize;
    const bool isOne = isWhole && head.magic == kMagic && head.version == kVersion &&
                       head.kind == kind && head.nameUnits <= kMaxObjectName;
    if (!isOne || std::u16string_view(head.name, head.nameUnits) != name) {
        return ERROR_INVALID_HANDLE;
    }
    *dataSize = head.dataSize;
    return ERROR_SUCCESS;
}

NamedHead* ObjectFile::MapHead() const
{
    void* const memory =
        mmap(nullptr, kNamedHeadSize, PROT_READ | PROT_WRITE, MAP_SHARED, m_file, 0);
    return memory != MAP_FAILED ? static_cast<NamedHead*>(memory) : nullptr;
}

} // namespace qv::platform
