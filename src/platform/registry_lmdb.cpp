#include "platform/registry_lmdb.h"

#include <fcntl.h>

#include <cerrno>

#include "platform/error.h"
#include "platform/standard_numbers.h"

namespace qv::platform
{

namespace
{

// A process keeps a place for each reader that it ever used at once.
constexpr unsigned kReaders = 8192;

} // namespace

DWORD ErrorFromStore(int result)
{
    switch (result) {
    case MDB_NOTFOUND:
        return ERROR_FILE_NOT_FOUND;
    case MDB_INVALID:
    case MDB_CORRUPTED:
    case MDB_PAGE_NOTFOUND:
    case MDB_VERSION_MISMATCH:
    case MDB_PANIC:
    case MDB_INCOMPATIBLE:
        return ERROR_REGISTRY_CORRUPT;
    case MDB_MAP_FULL:
    case MDB_MAP_RESIZED:
    case MDB_READERS_FULL:
    case MDB_TXN_FULL:
    case MDB_CURSOR_FULL:
    case MDB_PAGE_FULL:
    case MDB_KEYEXIST: // 256 names with the same hash
        return ERROR_NO_SYSTEM_RESOURCES;
    default:
        return result >= 0 ? ErrorFromErrno(result) : ERROR_GEN_FAILURE;
    }
}

// Readers are tied to their transaction, not to their thread.
int Environment::Open(const char* path, unsigned flags, mdb_mode_t mode)
{
    Close();
    int result = mdb_env_create(&m_environment);
    if (result != 0) {
        m_environment = nullptr;
        return result;
    }
    result = mdb_env_set_mapsize(m_environment, kMapSize);
    if (result == 0) {
        result = mdb_env_set_maxreaders(m_environment, kReaders);
    }
    if (result == 0) {
        const StandardNumbers taken; // what the program prints must not go into the store
        result = mdb_env_open(m_environment, path, flags | MDB_NOTLS, mode);
    }
    int file = -1;
    if (result == 0) {
        result = mdb_env_get_fd(m_environment, &file);
    }
    // LMDB leaves this one of its files open for other programs.
    return result == 0 && fcntl(file, F_SETFD, FD_CLOEXEC) != 0 ? errno : result;
}

MDB_env* Environment::Release()
{
    MDB_env* const environment = m_environment;
    m_environment = nullptr;
    return environment;
}

void Environment::Close()
{
    if (m_environment != nullptr) {
        mdb_env_close(m_environment);
        m_environment = nullptr;
    }
}

} // namespace qv::platform
