#include "process/thread_manager.h"

#include "frame/boundary.h"
#include "platform/error.h"
#include "platform/thread.h"

using namespace qv::core;
using namespace qv::platform;

namespace
{

QVRESULT Close(HANDLE handle)
{
    return CloseHandle(handle) != kFalse ? S_OK : QVResultFromNative(GetLastError());
}

} // namespace

CQVThreadManager::CQVThreadManager()
{
    // Without its mutex the table refuses everything, but the library comes up.
    if (m_mapMutex.Get() != QV_MUTEX_NONE) {
        Add(GetCurrentThreadId(), GetCurrentThread());
    }
}

CQVThreadManager::Record CQVThreadManager::Find(std::uint32_t id) const
{
    const LockGuard lock(m_mapMutex.Get());
    const auto found = m_map.find(id);
    return found != m_map.end() ? found->second : Record();
}

void CQVThreadManager::Add(std::uint32_t id, HANDLE handle)
{
    Record replaced(new CQVThreadData(handle));
    bool closes = false;
    {
        const LockGuard lock(m_mapMutex.Get());
        std::swap(m_map[id], replaced);
        // Nobody can reach the ended thread any more, but for a join that is about to close it.
        closes =
            replaced && !replaced->IsAdopted() && !replaced->m_givenUp && replaced->m_uses == 0;
    }
    if (closes) {
        CloseHandle(replaced->m_handle);
    }
}

void CQVThreadManager::Remove(std::uint32_t id)
{
    const LockGuard lock(m_mapMutex.Get());
    m_map.erase(id);
}

void CQVThreadManager::EraseIfOver(std::uint32_t id, const CQVThreadData& thread)
{
    const LockGuard lock(m_mapMutex.Get());
    if (thread.m_detached && thread.m_finished && Find(id).Get() == &thread) {
        m_map.erase(id);
    }
}

void CQVThreadManager::MarkDetached(std::uint32_t id, CQVThreadData& thread)
{
    const LockGuard lock(m_mapMutex.Get());
    thread.m_detached = true;
    EraseIfOver(id, thread);
}

void CQVThreadManager::MarkFinished(std::uint32_t id)
{
    const LockGuard lock(m_mapMutex.Get());
    if (const Record thread = Find(id)) {
        thread->m_finished = true;
        EraseIfOver(id, *thread.Get());
    }
}

CQVThreadManager::Record CQVThreadManager::BeginUse(std::uint32_t id)
{
    const LockGuard lock(m_mapMutex.Get());
    Record thread = Find(id);
    if (!thread || thread->m_givenUp) {
        throw EQVCoreException(E_HANDLE);
    }
    ++thread->m_uses;
    return thread;
}

QVRESULT CQVThreadManager::EndUse(CQVThreadData& thread, bool givesUp)
{
    bool tooLate = false;
    bool closes = false;
    {
        const LockGuard lock(m_mapMutex.Get());
        --thread.m_uses;
        // A pseudo handle is closed without effect, any number of times.
        if (givesUp && !thread.IsAdopted()) {
            tooLate = std::exchange(thread.m_givenUp, true);
        }
        closes = thread.m_givenUp && thread.m_uses == 0;
    }
    const QVRESULT closed = closes ? Close(thread.m_handle) : S_OK;
    return tooLate ? E_HANDLE : closed;
}

void CQVThreadManager::PrepareFork()
{
    m_mapMutex.HoldIfMade();
}

void CQVThreadManager::ParentAfterFork()
{
    m_mapMutex.ReleaseIfMade();
}

void CQVThreadManager::ChildAfterFork()
{
    for (const auto& [id, thread] : m_map) {
        if (!thread->m_givenUp && thread->m_uses == 0) {
            CloseHandle(thread->m_handle);
        }
    }
    m_map.clear();
    // Without memory for it the thread is one that the table does not know.
    Boundary([this] { Add(GetCurrentThreadId(), GetCurrentThread()); });
    m_mapMutex.ReleaseIfMade();
}
