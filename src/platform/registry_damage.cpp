#include "platform/registry_damage.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <bit>
#include <cerrno>

#include "platform/registry_lmdb.h"
#include "platform/registry_page_walk.h"
#include "platform/registry_turns.h"

namespace qv::platform
{

namespace
{

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

bool ReadHead(int file, off_t at, FileHead* head)
{
    return pread(file, head, sizeof *head, at) == static_cast<ssize_t>(sizeof *head);
}

bool IsSound(const FileHead& head)
{
    const std::size_t pageSize = head.freePages.pageSize;
    return std::has_single_bit(pageSize) && pageSize >= kMinPageSize && pageSize <= kMaxPageSize &&
           head.lastPage >= kHeadPages - 1 && head.lastPage < Environment::kMapSize / pageSize &&
           head.transaction <= static_cast<std::size_t>(-1) / 2; // LMDB counts on from here
}

// The state that the transaction sees. Its pages stay as they are while it lasts; its head is
// written again by the second commit from then on.
int WalkSnapshot(MDB_env* environment, MDB_txn* transaction)
{
    int file = -1;
    MDB_stat stat = {};
    int result = mdb_env_get_fd(environment, &file);
    if (result == 0) {
        result = mdb_env_stat(environment, &stat);
    }
    struct stat facts = {};
    if (result == 0 && fstat(file, &facts) != 0) {
        result = errno;
    }
    if (result != 0) {
        return result;
    }
    const std::size_t number = mdb_txn_id(transaction);
    FileHead head;
    if (!ReadHead(file, static_cast<off_t>(number % kHeadPages * stat.ms_psize), &head) ||
        head.transaction != number || head.freePages.pageSize != stat.ms_psize || !IsSound(head)) {
        return MDB_CORRUPTED;
    }
    return PageWalk(file, facts.st_size, stat.ms_psize, head).Run();
}

bool HasMovedOn(MDB_env* environment, std::size_t number)
{
    MDB_envinfo info = {};
    return mdb_env_info(environment, &info) == 0 && info.me_last_txnid != number;
}

} // namespace

// LMDB reads the heads too, and says what is wrong with a file that is none of its own.
int CheckFileHeads(const std::string& path)
{
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    FileHead head;
    off_t at = 0;
    for (PageNumber page = 0; page < kHeadPages && ReadHead(file.Get(), at, &head); ++page) {
        if (head.magic != kFileMagic || head.version != kFileVersion) {
            return 0;
        }
        // LMDB finds the second head by the page size of the one in force.
        const auto pageSize = static_cast<off_t>(head.freePages.pageSize);
        if (!IsSound(head) || (page != 0 && pageSize != at)) {
            return MDB_INVALID;
        }
        at += pageSize;
    }
    return 0;
}

int CheckPages(MDB_env* environment, TurnLocks& turns)
{
    constexpr int kTries = 10;
    for (int tries = 1;; ++tries) {
        Transaction reading;
        int result;
        {
            const Turn turn(turns, TurnKind::kRegistering);
            result = reading.Begin(environment, MDB_RDONLY);
        }
        if (result != 0) {
            return result;
        }
        result = WalkSnapshot(environment, reading.Get());
        // The head may have been read while a quick writer wrote it again.
        if (result != MDB_CORRUPTED || tries == kTries ||
            !HasMovedOn(environment, mdb_txn_id(reading.Get()))) {
            return result;
        }
    }
}

} // namespace qv::platform
