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
    struct stat status = {};
    if (fstat(m_file, &status) != 0) {
        return LastErrno();
    }
    return S_ISREG(status.st_mode) ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
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

DWORD ObjectFile::Allocate(std::uint64_t dataSize) const
{
    if (dataSize > static_cast<std::uint64_t>(INT64_MAX) - kNamedHeadSize) {
        return ERROR_DISK_FULL;
    }
    const std::uint64_t size = dataSize + kNamedHeadSize;
    // Passing this limit ends the process by a signal.
    struct rlimit limit = {};
    if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && size > limit.rlim_cur) {
        return ERROR_FILE_TOO_LARGE;
    }
    // Taken now: a full file system is an error here, and would be a signal later.
    return Retried([&] { return fallocate(m_file, 0, 0, static_cast<off_t>(size)); }) == 0
               ? ERROR_SUCCESS
               : LastErrno();
}

DWORD ObjectFile::Fill(std::u16string_view name, NamedKind kind, const NamedContent& content) const
{
    if (Retried([&] { return ftruncate(m_file, 0); }) != 0) {
        return LastErrno();
    }
    if (const DWORD error = Allocate(content.dataSize)) {
        return error;
    }
    NamedHead head = {};
    FillHead(&head, name, kind, content);
    const auto written = Retried([&] { return pwrite(m_file, &head, sizeof head, 0); });
    if (written < 0) {
        return LastErrno();
    }
    return written == static_cast<ssize_t>(sizeof head) ? ERROR_SUCCESS : ERROR_DISK_FULL;
}

DWORD ObjectFile::Lock(ObjectByte byte, int type) const
{
    struct flock lock = {};
    lock.l_type = static_cast<short>(type);
    lock.l_whence = SEEK_SET;
    lock.l_start = static_cast<off_t>(byte);
    lock.l_len = 1;
    if (Retried([&] { return fcntl(m_file, F_OFD_SETLK, &lock); }) == 0) {
        return ERROR_SUCCESS;
    }
    return errno == EAGAIN || errno == EACCES ? kTryAgain : LastErrno();
}

DWORD ObjectFile::LockForWriting(ObjectByte byte) const
{
    return Lock(byte, F_WRLCK);
}

DWORD ObjectFile::LockForReading(ObjectByte byte) const
{
    return Lock(byte, F_RDLCK);
}

void ObjectFile::Unlock(ObjectByte byte) const
{
    Lock(byte, F_UNLCK);
}

bool ObjectFile::IsAt(const ObjectPath& path) const
{
    struct stat here = {};
    struct stat there = {};
    return fstat(m_file, &here) == 0 && lstat(path.Text(), &there) == 0 &&
           here.st_dev == there.st_dev && here.st_ino == there.st_ino;
}

DWORD ObjectFile::Test(std::u16string_view name, NamedKind kind) const
{
    struct stat status = {};
    NamedHead head = {};
    if (fstat(m_file, &status) != 0 ||
        Retried([&] { return pread(m_file, &head, sizeof head, 0); }) < 0) {
        return LastErrno();
    }
    // A short file leaves zeros in the head, or too few bytes for it.
    const auto size = static_cast<std::uint64_t>(status.st_size);
    const bool isWhole = size >= kNamedHeadSize && head.dataSize <= size - kNamedHeadSize;
    const bool isOne = isWhole && head.magic == kMagic && head.version == kVersion &&
                       head.kind == kind && head.nameUnits <= kMaxObjectName;
    return isOne && std::u16string_view(head.name, head.nameUnits) == name ? ERROR_SUCCESS
                                                                           : ERROR_INVALID_HANDLE;
}

NamedHead* ObjectFile::MapHead() const
{
    void* const memory =
        mmap(nullptr, kNamedHeadSize, PROT_READ | PROT_WRITE, MAP_SHARED, m_file, 0);
    return memory != MAP_FAILED ? static_cast<NamedHead*>(memory) : nullptr;
}

} // namespace qv::platform
