#include "platform/registry_turns.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace qv::platform
{

namespace
{

// A byte each, far behind the data.
constexpr off_t kFirstByte = 0x7FFF0000;

struct flock LockOf(TurnKind kind, short type)
{
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = kFirstByte + static_cast<off_t>(kind);
    lock.l_len = 1;
    return lock;
}

} // namespace

Turn::Turn(TurnLocks& locks, TurnKind kind)
    : m_lock(locks.threads[static_cast<unsigned>(kind)]), m_file(locks.file), m_kind(kind)
{
    struct flock lock = LockOf(kind, F_WRLCK);
    while (fcntl(m_file, F_SETLKW, &lock) != 0) {
        if (errno == EDEADLK) {
            usleep(1000); // found between processes where there is none between threads
        } else if (errno != EINTR) {
            break; // a file system without locks, or a file that may only be read
        }
    }
}

Turn::~Turn()
{
    struct flock lock = LockOf(m_kind, F_UNLCK);
    fcntl(m_file, F_SETLK, &lock);
}

} // namespace qv::platform
