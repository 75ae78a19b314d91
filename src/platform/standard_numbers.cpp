#include "platform/standard_numbers.h"

#include <fcntl.h>

namespace qv::platform
{

StandardNumbers::StandardNumbers()
{
    int file;
    // Every process has a root, and a descriptor of this kind is as deaf and dumb as a closed one.
    while ((file = open("/", O_PATH | O_CLOEXEC)) >= 0 && file <= STDERR_FILENO) {
        m_taken[file] = fstat(file, &m_root) == 0;
    }
    if (file >= 0) {
        close(file);
    }
}

StandardNumbers::~StandardNumbers()
{
    for (int file = 0; file <= STDERR_FILENO; ++file) {
        // Another thread may have put its own file there meanwhile.
        struct stat now = {};
        if (m_taken[file] && fstat(file, &now) == 0 && now.st_dev == m_root.st_dev &&
            now.st_ino == m_root.st_ino) {
            close(file);
        }
    }
}

} // namespace qv::platform
