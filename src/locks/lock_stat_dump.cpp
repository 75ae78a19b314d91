#include "locks/lock_stat_dump.h"

#include <qvcore6/lockstats.h>
#include <qvcore6/time.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <ctime>
#include <string>
#include <string_view>
#include <utility>

#include "frame/exception.h"
#include "platform/error.h"
#include "platform/text_file.h"

namespace qv::core
{

namespace
{

// A file that lines are appended to, each in one write: a process that is killed leaves whole
// lines, and lines of processes that share a file do not mix.
class LineFile
{
public:
    explicit LineFile(const char16_t* path)
        : m_file(platform::_wsopen(path, platform::kAppendText, platform::kDenyNone))
    {
        if (m_file == -1) {
            Fail();
        }
    }
    ~LineFile()
    {
        if (m_file != -1) {
            platform::_close(m_file);
        }
    }
    LineFile(const LineFile&) = delete;
    LineFile& operator=(const LineFile&) = delete;

    void Write(std::string line)
    {
        constexpr std::size_t kMost = 1u << 30;
        line += '\n';
        for (std::string_view rest = line; !rest.empty();) {
            const auto size = static_cast<unsigned>(std::min(rest.size(), kMost));
            const int written = platform::_write(m_file, rest.data(), size);
            if (written <= 0) {
                Fail();
            }
            rest.remove_prefix(static_cast<std::size_t>(written));
        }
    }

    void Close()
    {
        if (platform::_close(std::exchange(m_file, -1)) != 0) {
            Fail();
        }
    }

private:
    // Only exhausted memory has a code of its own.
    [[noreturn]] static void Fail()
    {
        throw EQVCoreException(
            platform::GetLastError() == platform::ERROR_OUTOFMEMORY ? E_OUTOFMEMORY : E_FAIL);
    }

    int m_file;
};

std::string LocalTime()
{
    QVTime now;
    std::tm record = {};
    char text[80] = "";
    QVTimeGetLocal(&now);
    QVTimeToTM(&now, &record);
    return {text, std::strftime(text, sizeof text, "%m/%d/%Y %H:%M:%S", &record)};
}

const char* TypeWord(std::int32_t type)
{
    switch (type) {
    case kLiveMutex:
        return "QV_MUTEX";
    case kDestroyedMutex:
        return "QV_DEL_MUTEX";
    default:
        return "UNKNOWN";
    }
}

// As wide as a pointer.
std::string Hex(std::uintptr_t address)
{
    char text[2 * sizeof address + 1];
    std::snprintf(text, sizeof text, "%0*" PRIXPTR, static_cast<int>(2 * sizeof address), address);
    return text;
}

std::string Row(const LockKey& key, IMutex& mutex)
{
    QVLockStats stats = {};
    mutex.GetStats(&stats);
    std::string row = TypeWord(key.first);
    row.append(":0x").append(Hex(key.second)).append("(").append(mutex.GetName()).append(")");
    for (const std::int64_t number :
         {stats.heldCount, stats.totalHeldTime, stats.maxHeldTime, stats.acquireCount,
          stats.totalAcquireTime, stats.maxAcquireTime, stats.contentionCount}) {
        row.append(",").append(std::to_string(number));
    }
    return row;
}

} // namespace

void DumpLockTable(const LockTable& table, const char* name, const char16_t* file)
{
    const std::string label = name != nullptr ? name : "LockStatsDump";
    LineFile out(file != nullptr ? file : u"qvlockstats.csv");
    out.Write("BeginLockStatistics: " + label + " - " + LocalTime());
    out.Write("CPU Frequency,1000000");
    out.Write("Name/Handle,Held Count,Total Held Time,Max Held Time,Acquire Count,"
              "Total Acquire Time,Max Acquire Time,Contention Count");
    for (const auto& [key, mutex] : table) {
        out.Write(Row(key, *mutex));
    }
    out.Write("EndLockStatistics: " + label + " - " + LocalTime());
    out.Write("");
    out.Write("");
    out.Close();
}

} // namespace qv::core
