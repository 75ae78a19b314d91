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

// One write, without the SIGXFSZ of a file at the process's limit either: the number of bytes, or
// -1 with errno.
ssize_t WriteOnceQuietly(int file, const char* bytes, std::size_t count);

} // namespace qv::platform
