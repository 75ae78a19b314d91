#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <ctime>

#include "platform/descriptor_handle.h"
#include "platform/error.h"
#include "platform/named_object.h"
#include "platform/no_cancellation.h"

namespace qv::platform
{

namespace
{

constexpr int kSome = 16; // objects that a call looks at, at a few microseconds each

// Where the next call goes on, in objects from the start of the folder. Under the lock.
constinit int g_next = 0;

void RemoveIfLeftOver(const ObjectPath& path, std::int64_t changedUntil)
{
    ObjectFile file;
    FileState state;
    // Most are in use, which costs those who use them nothing.
    if (file.Open(path) == ERROR_SUCCESS && file.Look(&state) == ERROR_SUCCESS &&
        state.changed <= changedUntil &&
        file.OthersAt(ObjectByte::Life) == ObjectFile::Others::None) {
        RemoveLeftOver(path);
    }
}

class Sweep
{
public:
    Sweep(int first, int end, std::int64_t changedUntil)
        : m_first(first), m_end(end), m_changedUntil(changedUntil)
    {}

    // Where the next one goes on: 0 after the last object.
    int Run(Descriptor folder)
    {
        alignas(8) char piece[4096];
        for (;;) {
            const long size = syscall(SYS_getdents64, folder, piece, sizeof piece);
            if (size <= 0) {
                return 0;
            }
            for (long at = 0; at < size;) {
                // An entry has its size in bytes and its terminated name there.
                constexpr long kEntrySize = 16;
                constexpr long kEntryName = 19;
                std::uint16_t length = 0;
                std::memcpy(&length, piece + at + kEntrySize, sizeof length);
                Take(piece + at + kEntryName);
                at += length;
            }
            if (m_count >= m_end) {
                return m_end;
            }
        }
    }

private:
    void Take(const char* name)
    {
        ObjectPath path;
        if (path.MakeOfFile(name) && m_count++ >= m_first && m_count <= m_end) {
            RemoveIfLeftOver(path, m_changedUntil);
        }
    }

    int m_first;
    int m_end;
    std::int64_t m_changedUntil;
    int m_count = 0;
};

} // namespace

void SweepNamedObjects(bool all)
{
    const KeepErrno keep;
    const NoCancellation noCancellation;
    const NamedObjectsHold locked; // no fork finds the folder open
    const Descriptor folder = OpenPath(kObjectFolder, O_RDONLY | O_DIRECTORY);
    if (folder < 0) {
        return;
    }
    if (all) {
        Sweep(0, INT_MAX, INT64_MAX).Run(folder);
    } else {
        // What is younger may be about to be taken over by who wants its name.
        const std::int64_t changedUntil = std::time(nullptr) - 2;
        g_next = Sweep(g_next, g_next + kSome, changedUntil).Run(folder);
    }
    CloseDescriptor(folder);
}

} // namespace qv::platform
