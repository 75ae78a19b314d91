#include "platform/registry_locations.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <vector>

#include "platform/error.h"

namespace qv::platform
{

namespace
{

constexpr const char* kSystemState = "/var/lib/qvcore6";
constexpr const char* kSystemStore = "/var/lib/qvcore6/registry";

// Not for programs with more rights than their caller.
std::string Setting(const char* name)
{
    const char* const value = secure_getenv(name);
    return value == nullptr ? std::string() : std::string(value);
}

bool IsAbsolute(const std::string& path)
{
    return !path.empty() && path.front() == '/';
}

std::string AccountHome()
{
    std::vector<char> buffer(16384);
    passwd record = {};
    passwd* found = nullptr;
    if (getpwuid_r(geteuid(), &record, buffer.data(), buffer.size(), &found) != 0 ||
        found == nullptr) {
        return {};
    }
    return record.pw_dir;
}

DWORD FindUserData(std::string* folder)
{
    *folder = Setting("XDG_DATA_HOME");
    if (IsAbsolute(*folder)) {
        return ERROR_SUCCESS;
    }
    std::string home = Setting("HOME");
    if (!IsAbsolute(home)) {
        home = AccountHome();
    }
    if (!IsAbsolute(home)) {
        return ERROR_PATH_NOT_FOUND;
    }
    *folder = home + "/.local/share";
    return ERROR_SUCCESS;
}

// By the rights that the files are opened with, not by those of the caller.
bool IsAccessible(const char* path, int mode)
{
    return faccessat(AT_FDCWD, path, mode, AT_EACCESS) == 0;
}

// The store need not be writable: a user without that right reads what the installation has set.
bool SystemStoreIsUsable()
{
    if (IsAccessible(kSystemStore, F_OK)) {
        return IsAccessible(kSystemStore, R_OK | X_OK);
    }
    return IsAccessible(kSystemState, R_OK | W_OK | X_OK);
}

// A later change of the current directory must not move the store for a forked child.
DWORD MakeAbsolute(std::string* path)
{
    if (IsAbsolute(*path)) {
        return ERROR_SUCCESS;
    }
    char current[PATH_MAX];
    if (getcwd(current, sizeof current) == nullptr) {
        return ErrorFromErrno(errno);
    }
    *path = std::string(current) + "/" + *path;
    return ERROR_SUCCESS;
}

} // namespace

DWORD FindStoreFolder(StorePart part, std::string* folder)
{
    const bool isUser = part == StorePart::kUser;
    *folder = Setting("QVCORE6_STATE_DIR");
    if (!folder->empty()) {
        *folder += isUser ? "/user" : "/machine";
        return MakeAbsolute(folder);
    }
    if (!isUser && SystemStoreIsUsable()) {
        *folder = kSystemStore;
        return ERROR_SUCCESS;
    }
    const DWORD error = FindUserData(folder);
    *folder += isUser ? "/qvcore6/registry" : "/qvcore6/registry-machine";
    return error;
}

DWORD MakeStoreFolder(const std::string& folder, unsigned mode)
{
    struct stat facts = {};
    if (stat(folder.c_str(), &facts) == 0) {
        return S_ISDIR(facts.st_mode) ? ERROR_SUCCESS : ERROR_PATH_NOT_FOUND;
    }
    for (std::size_t end = folder.find('/', 1); end != std::string::npos;
         end = folder.find('/', end + 1)) {
        mkdir(folder.substr(0, end).c_str(), 0755); // the last one tells what went wrong
    }
    if (mkdir(folder.c_str(), mode) != 0) {
        return errno == EEXIST ? ERROR_SUCCESS : ErrorFromErrno(errno);
    }
    // The umask must not hide the machine's store from other users.
    return chmod(folder.c_str(), mode) == 0 ? ERROR_SUCCESS : ErrorFromErrno(errno);
}

} // namespace qv::platform
