#include "platform/standard_numbers.h"

#include <fcntl.h>

namespace qv::platform
{

StandardNumbers::StandardNumbers()
{
    int file;
    while ((file = open("/dev/null", O_RDWR | O_CLOEXEC)) >= 0 && file <= STDERR_FILENO) {
        m_taken[file] = fstat(file, &m_null) == 0;
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
        if (m_taken[file] && fstat(file, &now) == 0 && now.st_dev == m_null.st_dev &&
            now.st_ino == m_null.st_ino) {
            close(file);
        }
    }
}

} // namespace qv::platform
