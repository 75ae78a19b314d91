#include "platform/registry_environment.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "platform/registry_damage.h"
#include "platform/registry_lmdb.h"
#include "platform/registry_schema.h"
#include "platform/registry_turns.h"

namespace qv::platform
{

namespace
{

// A commit syncs all but its last page: a crash of the system may undo the last commit, no more.
constexpr unsigned kSharedFlags = MDB_NOMETASYNC;

constexpr const char* kDataFile = "/data.mdb";
constexpr const char* kLockFile = "/lock.mdb";

mdb_mode_t ModeOf(StorePart part)
{
    return part == StorePart::kMachine ? 0644 : 0600;
}

bool IsRefusal(int result)
{
    return result == EACCES || result == EPERM || result == EROFS;
}

bool IsMissing(const std::string& path)
{
    return faccessat(AT_FDCWD, path.c_str(), F_OK, AT_EACCESS) != 0 && errno == ENOENT;
}

bool IsEmpty(const std::string& path)
{
    struct stat facts = {};
    return stat(path.c_str(), &facts) == 0 && facts.st_size == 0;
}

// Who may only read still writes a mark into the lock file. It gets its mode before it has a name,
// so that nobody meets it with another one. False where the file system cannot do that.
bool MakeLockFile(const std::string& folder)
{
    const int file = open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (file < 0) {
        return false;
    }
    char link[64];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", file);
    const bool made =
        fchmod(file, 0666) == 0 &&
        (linkat(AT_FDCWD, link, AT_FDCWD, (folder + kLockFile).c_str(), AT_SYMLINK_FOLLOW) == 0 ||
         errno == EEXIST);
    close(file);
    return made;
}

// A folder that is removed again with the files that a store makes in it.
class PassingFolder
{
public:
    explicit PassingFolder(const std::string& parent) : m_path(parent + "/new-XXXXXX")
    {
        m_error = mkdtemp(m_path.data()) == nullptr ? errno : 0;
    }
    ~PassingFolder()
    {
        if (m_error == 0) {
            unlink((m_path + kDataFile).c_str());
            unlink((m_path + kLockFile).c_str());
            rmdir(m_path.c_str());
        }
    }
    PassingFolder(const PassingFolder&) = delete;
    PassingFolder& operator=(const PassingFolder&) = delete;

    int Error() const { return m_error; }
    const std::string& Path() const { return m_path; }

private:
    std::string m_path;
    int m_error;
};

// The file gets its name when it is complete: a maker that is killed leaves no half of one.
int MakeDataFile(StorePart part, const std::string& folder)
{
    const PassingFolder made(folder);
    if (made.Error() != 0) {
        return made.Error();
    }
    const std::string from = made.Path() + kDataFile;
    const std::string to = folder + kDataFile;
    {
        Environment environment;
        MDB_dbi database = 0;
        int result = environment.Open(made.Path().c_str(), 0, ModeOf(part));
        if (result == 0) {
            result = FindSchema(environment.Get(), part, false, &database);
        }
        if (result != 0) {
            return result;
        }
    }
    if (chmod(from.c_str(), ModeOf(part)) != 0 ||
        (link(from.c_str(), to.c_str()) != 0 && errno != EEXIST)) {
        return errno;
    }
    return 0;
}

int OpenFiles(const std::string& folder, StorePart part, Environment& environment, bool* readOnly)
{
    int result = CheckFileHeads(folder + kDataFile);
    if (result != 0) {
        return result;
    }
    result = environment.Open(folder.c_str(), kSharedFlags, ModeOf(part));
    *readOnly = IsRefusal(result);
    if (*readOnly) {
        result = environment.Open(folder.c_str(), kSharedFlags | MDB_RDONLY, ModeOf(part));
    }
    return result;
}

int Register(StorePart part, bool readOnly, Environment& environment, MDB_dbi* database)
{
    TurnLocks turns;
    int result = mdb_env_get_fd(environment.Get(), &turns.file);
    if (result != 0) {
        return result;
    }
    {
        const Turn turn(turns, TurnKind::kRegistering);
        int dead = 0;
        result = mdb_reader_check(environment.Get(), &dead); // gives back what killed readers held
    }
    if (result == 0) {
        result = CheckPages(environment.Get(), turns);
    }
    if (result != 0) {
        return result;
    }
    const Turn turn(turns, TurnKind::kRegistering);
    return FindSchema(environment.Get(), part, readOnly, database);
}

} // namespace

DWORD OpenEnvironment(StorePart part, const std::string& folder, OpenedEnvironment* opened)
{
    const bool isMachine = part == StorePart::kMachine;
    if (const DWORD error = MakeStoreFolder(folder, isMachine ? 0755 : 0700)) {
        // An account whose home does not exist has no store either.
        return error == ERROR_ACCESS_DENIED || error == ERROR_FILE_NOT_FOUND ? ERROR_PATH_NOT_FOUND
                                                                             : error;
    }
    if (IsEmpty(folder + kDataFile)) {
        return ERROR_REGISTRY_CORRUPT; // a data file gets its name when it is complete
    }
    if (IsMissing(folder + kDataFile)) {
        const int result = MakeDataFile(part, folder);
        if (result != 0) {
            return IsRefusal(result) ? ERROR_PATH_NOT_FOUND : ErrorFromStore(result);
        }
    }
    const bool withLockMode = isMachine && IsMissing(folder + kLockFile) && !MakeLockFile(folder);
    Environment environment;
    int result = OpenFiles(folder, part, environment, &opened->readOnly);
    if (withLockMode) {
        chmod((folder + kLockFile).c_str(), 0666); // by name: closing the file would drop its locks
    }
    if (result == 0) {
        result = Register(part, opened->readOnly, environment, &opened->database);
    }
    if (result != 0) {
        return result == ENOENT ? ERROR_PATH_NOT_FOUND : ErrorFromStore(result);
    }
    opened->environment = environment.Release();
    return ERROR_SUCCESS;
}

} // namespace qv::platform
