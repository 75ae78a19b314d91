#include "lock_report.h"

#include <qvcore6/lockstats.h>

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <string>

#include "report.h"
#include "store.h"

namespace host
{

namespace
{

void PrintTable(const char* name, const QVLockStats& stats)
{
    std::printf("  %-24s%9s%9s%9s%9s%9s%9s%11s\n", "lock", "acquired", "waited", "longest",
                "released", "held", "longest", "contended");
    std::printf("  %-24s", name);
    for (const int64_t value : {stats.acquireCount, stats.totalAcquireTime, stats.maxAcquireTime,
                                stats.heldCount, stats.totalHeldTime, stats.maxHeldTime}) {
        std::printf("%9" PRId64, value);
    }
    std::printf("%11" PRId64 "\n", stats.contentionCount);
}

} // namespace

bool ReportLock(const char* name, const Mutex& mutex, const std::filesystem::path& file)
{
    QVLockStats stats = {};
    const QVRESULT counted = QVGetLockStats(mutex.Handle(), &stats);
    if (counted < 0) {
        PrintProblem(std::string("there are no lock statistics: ") + InWords(counted));
        return false;
    }
    std::printf("\nLock statistics, times in microseconds\n");
    PrintTable(name, stats);
    const std::u16string path = Widen(file.string());
    if (path.empty()) {
        PrintProblem("the path " + file.string() + " is not UTF-8");
        return false;
    }
    const QVRESULT written = QVDumpLockStats("host", path.c_str());
    if (written < 0) {
        PrintProblem("lock statistics cannot be written to " + file.string() + ": " +
                     InWords(written));
        return false;
    }
    PrintRow(2, "also, as lines, in", Shown(file.string()));
    return true;
}

} // namespace host
