#include "platform/file_record.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "platform/descriptor_handle.h"
#include "platform/error.h"
#include "platform/file_locks.h"

namespace qv::platform
{

FileRecord::~FileRecord()
{
    RemoveName();
    if (m_lockFile >= 0) {
        CloseDescriptor(m_lockFile);
    }
}

bool FileRecord::IsOf(Descriptor descriptor) const
{
    const KeepErrno keep;
    struct stat file = {};
    return fstat(descriptor, &file) == 0 && file.st_dev == m_device && file.st_ino == m_inode;
}

int FileRecord::Flags(Descriptor descriptor)
{
    if (m_flags < 0) {
        m_flags = fcntl(descriptor, F_GETFL);
    }
    return m_flags;
}

// Not the caller's path: that may lead through links and from a folder that the process leaves.
DWORD FileRecord::RememberName(Descriptor descriptor, const char* path)
{
    char link[40];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
    char name[PATH_MAX];
    const ssize_t length = readlink(link, name, sizeof name - 1);
    name[std::max<ssize_t>(length, 0)] = '\0';
    // Where /proc is not to be seen the path is walked.
    if (length < 0 && realpath(path, name) == nullptr) {
        return ErrorFromErrno(errno);
    }
    try {
        m_name = name;
    } catch (const std::bad_alloc&) {
        return ERROR_OUTOFMEMORY;
    }
    return ERROR_SUCCESS;
}

DWORD FileRecord::Close(Descriptor descriptor)
{
    RemoveName();
    DropRanges(*this, descriptor);
    return CloseDescriptor(descriptor);
}

// Not a forked child's copy, and not another file that has got the name meanwhile.
void FileRecord::RemoveName()
{
    const KeepErrno keep;
    struct stat file = {};
    if (!m_name.empty() && IsOwn() && lstat(m_name.c_str(), &file) == 0 &&
        file.st_dev == m_device && file.st_ino == m_inode) {
        unlink(m_name.c_str());
    }
}

} // namespace qv::platform
