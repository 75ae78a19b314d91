// Turns of threads and processes at the locks of a store.
//
// LMDB's own locks are robust mutexes: a holder that is killed gives them back. But one that is
// killed while it waits may take a wake-up with it that was the next one's, who then waits for
// ever. So nobody waits there: all wait here, in the kernel's queue for a lock on the file, which
// is the process's own and ends with it. LMDB's locks still are what excludes.
//
// Order: OK: Turn(writing), Turn(registering). ERROR: Turn(registering), Turn(writing).
#pragma once

#include <array>
#include <mutex>

namespace qv::platform
{

enum class TurnKind : unsigned
{
    kWriting = 0,
    kRegistering = 1, // of readers, and the search for dead ones
};

struct TurnLocks
{
    int file = -1; // the data file, as LMDB has it open; it may not be writable
    std::array<std::mutex, 2> threads;
};

class Turn
{
public:
    Turn(TurnLocks& locks, TurnKind kind);
    ~Turn();
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

private:
    std::unique_lock<std::mutex> m_lock;
    int m_file;
    TurnKind m_kind;
};

} // namespace qv::platform
