#include <algorithm>
#include <vector>

#include "interleavings/model/platform/critical_section.h"
#include "interleavings/model/platform/futex.h"
#include "platform/error.h"

namespace qv::platform
{

using namespace explore;

namespace
{

struct Sleeper
{
    const void* word;
    bool isWoken;
};

// In the order in which they fell asleep, like the kernel's.
std::vector<Sleeper*> g_sleepers;
DWORD g_lastError = 0;

bool IsFree(const void* object)
{
    return static_cast<const CRITICAL_SECTION*>(object)->holder == CRITICAL_SECTION::kNobody;
}

bool Sleep(const Atomic<std::uint32_t>& word, std::uint32_t expected, Wakeable wakeable,
           Where where)
{
    Step("futex wait", &word, where);
    if (word.Seen() != expected) {
        return true;
    }
    Sleeper self = {&word, false};
    g_sleepers.push_back(&self);
    const auto isWoken = [](const void* object) {
        return static_cast<const Sleeper*>(object)->isWoken;
    };
    const Awaited awaited = Await("sleeps on", where, isWoken, &self, wakeable);
    std::erase(g_sleepers, &self);
    return awaited != Awaited::TimedOut;
}

} // namespace

BOOL InitializeCriticalSectionAndSpinCount(CRITICAL_SECTION* section, DWORD /*spin*/)
{
    InitializeCriticalSection(section);
    return kTrue;
}

void InitializeCriticalSection(CRITICAL_SECTION* section)
{
    section->depth = 0;
    section->holder = CRITICAL_SECTION::kNobody;
}

void DeleteCriticalSection(CRITICAL_SECTION* section)
{
    section->liveness.Check();
}

LONG EnterCriticalSection(CRITICAL_SECTION* section, Where where)
{
    if (section->holder == CurrentThread()) {
        ++section->depth; // nobody else can tell
        return 0;
    }
    Await("enter", where, &IsFree, section);
    section->liveness.Check();
    section->holder = CurrentThread();
    return 0;
}

BOOL TryEnterCriticalSection(CRITICAL_SECTION* section, Where where)
{
    Step("try to enter", section, where);
    section->liveness.Check();
    if (section->holder != CurrentThread() && !IsFree(section)) {
        return kFalse;
    }
    section->depth += section->holder == CurrentThread() ? 1 : 0;
    section->holder = CurrentThread();
    return kTrue;
}

void LeaveCriticalSection(CRITICAL_SECTION* section, Where where)
{
    Require(section->holder == CurrentThread(), "a section is left by a thread without it");
    if (section->depth != 0) {
        --section->depth;
        return;
    }
    Step("leave", section, where);
    section->liveness.Check();
    section->holder = CRITICAL_SECTION::kNobody;
}

bool HoldsCriticalSection(const CRITICAL_SECTION& section)
{
    return section.holder == CurrentThread();
}

bool SpinUntilChanged(const Atomic<std::uint32_t>& word, std::uint32_t expected, Where where)
{
    return word.load(std::memory_order_acquire, where) != expected;
}

void FutexWait(const Atomic<std::uint32_t>& word, std::uint32_t expected, Where where)
{
    Sleep(word, expected, Wakeable::EarlyToo, where);
}

bool FutexWaitUntil(const Atomic<std::uint32_t>& word, std::uint32_t expected,
                    const Deadline& deadline, Where where)
{
    const Wakeable wakeable = deadline.IsForever() ? Wakeable::EarlyToo : Wakeable::ByTimeOutToo;
    return !deadline.IsNow() && Sleep(word, expected, wakeable, where);
}

void FutexWake(const Atomic<std::uint32_t>* word, int count, Where where)
{
    Step("futex wake", word, where);
    for (Sleeper* const sleeper : g_sleepers) {
        if (count > 0 && sleeper->word == word && !sleeper->isWoken) {
            sleeper->isWoken = true;
            --count;
        }
    }
}

Deadline Deadline::After(DWORD milliseconds)
{
    return Deadline(milliseconds == INFINITE ? kForever : milliseconds);
}

extern "C"
{
    DWORD GetLastError()
    {
        return g_lastError;
    }
    void SetLastError(DWORD error)
    {
        g_lastError = error;
    }
}

} // namespace qv::platform
