#include "platform/registry_damage.h"

#include <sys/mman.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/registry_lmdb.h"
#include "platform/registry_records.h"

namespace qv::platform
{

namespace
{

constexpr MDB_dbi kFreePages = 0; // LMDB's own list

class Descriptor
{
public:
    explicit Descriptor(int number) : m_number(number) {}
    ~Descriptor()
    {
        if (m_number >= 0) {
            close(m_number);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int Get() const { return m_number; }

private:
    int m_number;
};

struct FileFacts
{
    int file;
    off_t size;
    off_t expected;
};

// The books first: a writer lengthens the file before it says so there.
int TakeFacts(MDB_env* environment, FileFacts* facts)
{
    MDB_envinfo info = {};
    MDB_stat stat = {};
    int result = mdb_env_info(environment, &info);
    if (result == 0) {
        result = mdb_env_stat(environment, &stat);
    }
    if (result == 0) {
        result = mdb_env_get_fd(environment, &facts->file);
    }
    struct stat file = {};
    if (result == 0 && fstat(facts->file, &file) != 0) {
        result = errno;
    }
    facts->size = file.st_size;
    facts->expected = static_cast<off_t>(info.me_last_pgno + 1) * static_cast<off_t>(stat.ms_psize);
    return result;
}

int Copy(const FileFacts& facts, int to)
{
    off_t from = 0;
    while (from < facts.size) {
        const auto left = static_cast<std::size_t>(facts.size - from);
        const ssize_t sent = sendfile(to, facts.file, &from, left);
        if (sent < 0) {
            return errno;
        }
        if (sent == 0) {
            return EIO;
        }
    }
    return ftruncate(to, facts.expected) == 0 ? 0 : errno;
}

// Touches every page in use. What was cut off reads as zeros, which are no page and no record.
int Walk(MDB_txn* transaction, MDB_dbi database)
{
    Cursor cursor(transaction, database);
    MDB_val key;
    MDB_val data;
    int result;
    while ((result = cursor.Move(&key, &data, MDB_NEXT)) == 0) {
        ValueRecord value;
        const bool isValue = database != kFreePages && key.mv_size >= kNodeHead &&
                             static_cast<const unsigned char*>(key.mv_data)[kNodeHead - 1] ==
                                 static_cast<unsigned char>(RecordKind::kValue);
        if (isValue && !ValueRecord::Read(data, &value)) {
            return MDB_CORRUPTED;
        }
    }
    return result == MDB_NOTFOUND ? 0 : result;
}

int WalkCopy(int copy)
{
    char path[64];
    std::snprintf(path, sizeof path, "/proc/self/fd/%d", copy);
    Environment environment;
    int result = environment.Open(path, MDB_RDONLY | MDB_NOLOCK | MDB_NOSUBDIR, 0600);
    if (result != 0) {
        return result;
    }
    Transaction reading;
    MDB_dbi database = 0;
    result = reading.Begin(environment.Get(), MDB_RDONLY);
    if (result == 0) {
        result = mdb_dbi_open(reading.Get(), nullptr, 0, &database);
    }
    if (result == 0) {
        result = Walk(reading.Get(), kFreePages);
    }
    return result != 0 ? result : Walk(reading.Get(), database);
}

} // namespace

// LMDB never writes a page that was taken and given back in one transaction, so a short file may be
// a good one. A copy of the right length tells, and is rarely needed.
int CheckFileLength(MDB_env* environment, bool readOnly)
{
    FileFacts facts = {};
    int result = TakeFacts(environment, &facts);
    if (result != 0 || facts.size >= facts.expected) {
        return result;
    }
    Transaction still; // no writer changes the file meanwhile
    if (!readOnly) {
        result = still.Begin(environment, 0);
    }
    if (result == 0) {
        result = TakeFacts(environment, &facts);
    }
    if (result != 0 || facts.size >= facts.expected) {
        return result;
    }
    const Descriptor copy(memfd_create("registry", MFD_CLOEXEC));
    if (copy.Get() < 0) {
        return errno;
    }
    result = Copy(facts, copy.Get());
    if (result == 0) {
        result = WalkCopy(copy.Get());
    }
    return result == MDB_CORRUPTED || result == MDB_PAGE_NOTFOUND ? MDB_INVALID : result;
}

} // namespace qv::platform
