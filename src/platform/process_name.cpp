#include <poll.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <new>
#include <string_view>

#include "platform/descriptor_handle.h"
#include "platform/error.h"
#include "platform/no_cancellation.h"
#include "platform/orphans.h"
#include "platform/process.h"

namespace qv::platform
{

namespace
{

// Where the system shows the program of a process.
class ProgramLink
{
public:
    explicit ProgramLink(DWORD id) { std::snprintf(m_link, sizeof m_link, "/proc/%u/exe", id); }

    // The length, or -1 with errno.
    ssize_t Read(char* path, std::size_t size) const { return readlink(m_link, path, size); }
    bool IsFile(const char* path) const
    {
        struct stat program = {};
        struct stat file = {};
        return stat(m_link, &program) == 0 && stat(path, &file) == 0 &&
               program.st_dev == file.st_dev && program.st_ino == file.st_ino;
    }

private:
    char m_link[32];
};

bool HasEnded(Descriptor process)
{
    pollfd entry = {process, POLLIN, 0};
    while (poll(&entry, 1, 0) < 0 && errno == EINTR) {
    }
    return entry.revents != 0;
}

DWORD FailName(DWORD error)
{
    SetLastError(error);
    return 0;
}

} // namespace

Descriptor OpenProcess(DWORD /*access*/, BOOL /*inherits*/, DWORD id)
{
    const KeepErrno keep;
    const NoCancellation noCancellation;
    Orphans::Sweep();
    RecordHold<ProcessRecord> record(new (std::nothrow) ProcessRecord);
    if (!record) {
        SetLastError(ERROR_OUTOFMEMORY);
        return -1;
    }
    const Descriptor process =
        AboveStandardNumbers(static_cast<Descriptor>(syscall(SYS_pidfd_open, id, 0)));
    if (process < 0) {
        const bool isLimit = errno == EMFILE || errno == ENFILE || errno == ENOMEM;
        SetLastError(isLimit ? ErrorFromErrno(errno) : ERROR_INVALID_PARAMETER);
        return -1;
    }
    char first;
    DWORD error = ERROR_SUCCESS;
    if (ProgramLink(id).Read(&first, sizeof first) < 0 && (errno == EACCES || errno == EPERM)) {
        error = ERROR_ACCESS_DENIED;
    } else {
        record->Set(process, id, false);
        error = PutRecord(process, std::move(record));
    }
    if (error != ERROR_SUCCESS) {
        CloseDescriptor(process);
        SetLastError(error);
        return -1;
    }
    return process;
}

DWORD GetProcessImageFileNameA(Descriptor process, char* path, DWORD size)
{
    constexpr std::string_view kDeleted = " (deleted)";
    const KeepErrno keep;
    const NoCancellation noCancellation;
    const HeldProcess held(process);
    if (!held.IsKnown() || held.State() != ERROR_SUCCESS) {
        return FailName(ERROR_INVALID_HANDLE);
    }
    char text[PATH_MAX + kDeleted.size()];
    const ProgramLink link(held.Id());
    const ssize_t read = link.Read(text, sizeof text - 1);
    // Another process may have got the number, unless this one is still there.
    if (read <= 0 || HasEnded(process)) {
        return FailName(ERROR_GEN_FAILURE);
    }
    text[read] = '\0';
    std::string_view name(text, static_cast<std::size_t>(read));
    if (name.ends_with(kDeleted) && !link.IsFile(text)) {
        name.remove_suffix(kDeleted.size());
    }
    if (name.size() >= size) {
        return FailName(ERROR_INSUFFICIENT_BUFFER);
    }
    std::replace_copy(name.begin(), name.end(), path, '/', '\\');
    path[name.size()] = '\0';
    return static_cast<DWORD>(name.size());
}

} // namespace qv::platform
