// Output that nobody may be listening to.
#pragma once

#include <sys/types.h>

#include <cstddef>

namespace qv::platform
{

// Writes all of it in one system call, if the system takes it so, and goes on after a signal. No
// SIGPIPE is raised for a pipe or socket that nobody reads. Errors are dropped; false for the one
// that the next write would meet as well: there is no such descriptor. May wait for a slow reader.
bool WriteQuietly(int file, const char* bytes, std::size_t count);

// One write: the number of bytes, or -1 with errno.
ssize_t WriteOnce(int file, const char* bytes, std::size_t count);

// The same, without the SIGXFSZ of a file at the process's limit either, whenever that was set.
ssize_t WriteOnceQuietly(int file, const char* bytes, std::size_t count);

// At load: a limit that the process has got from its parent is kept in mind for every write.
void TakeFileLimit();
bool HasFileLimit();

} // namespace qv::platform
