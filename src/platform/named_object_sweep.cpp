#include <dirent.h>

#include <climits>
#include <memory>

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

struct CloseFolder
{
    void operator()(DIR* folder) const { closedir(folder); }
};

void RemoveIfLeftOver(const ObjectPath& path)
{
    ObjectFile file;
    FileState state;
    // Most are in use, which costs those who use them nothing.
    if (file.Open(path) == ERROR_SUCCESS && file.Look(&state) == ERROR_SUCCESS &&
        file.OthersAt(ObjectByte::Life) == ObjectFile::Others::None) {
        RemoveLeftOver(path);
    }
}

} // namespace

void SweepNamedObjects(bool all)
{
    const KeepErrno keep;
    const NoCancellation noCancellation;
    const NamedObjectsHold locked; // no fork finds the folder open
    const std::unique_ptr<DIR, CloseFolder> folder(opendir(kObjectFolder));
    if (folder == nullptr) {
        return;
    }
    const int first = all ? 0 : g_next;
    const int end = all ? INT_MAX : first + kSome;
    int count = 0;
    while (const dirent* const entry = readdir(folder.get())) {
        ObjectPath path;
        if (path.MakeOfFile(entry->d_name) && ++count > first) {
            RemoveIfLeftOver(path);
            if (count == end) {
                g_next = end;
                return;
            }
        }
    }
    g_next = 0;
}

} // namespace qv::platform
