#include <qvcore6/lockstats.h>
#include <qvcore6/result.h>

#include "frame/boundary.h"
#include "frame/global_data.h"
#include "locks/lock_stat_manager.h"
#include "platform/error.h"

using qv::core::Boundary;

namespace
{

// A library whose start ran out of memory stays loaded without the table.
CQVLockStatManager& Manager()
{
    if (g_globalData.m_lockStatManager == nullptr) {
        throw EQVCoreException(E_FAIL);
    }
    return *g_globalData.m_lockStatManager;
}

} // namespace

QVRESULT QVGetLockStats(QVMutex mutex, QVLockStats* stats)
{
    return reinterpret_cast<IMutex*>(mutex)->GetStats(stats);
}

QVRESULT QVResetLockStats(void)
{
    return Boundary([] { Manager().ResetAll(); });
}

QVRESULT QVDumpLockStats(const char* name, const QVWChar* file)
{
    const qv::platform::KeepErrno keep;
    return Boundary([&] { Manager().Dump(name, file); });
}
