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

bool Sleep(const Atomic<std::uint32_t>& word, std::uint32_t expected, Wakeable wakeable,
           Where where)
{
    Step("futex wait", &word, where);
    if (word.Seen() != expected) {
        return true;
    }
    Sleeper self = {&word, false};
    g_sleepers.push_back(&self);
    const Awaited awaited = Await(
        "sleeps on", &word, where, [&] { return self.isWoken; }, wakeable);
    std::erase(g_sleepers, &self);
    return awaited != Awaited::TimedOut;
}

} // namespace

LONG EnterCriticalSection(CRITICAL_SECTION* section, Where where)
{
    if (section->holder == CurrentThread()) {
        ++section->depth; // nobody else can tell
        return 0;
    }
    Await("enter", section, where, [=] { return section->IsFree(); });
    section->liveness.Check();
    section->holder = CurrentThread();
    return 0;
}

BOOL TryEnterCriticalSection(CRITICAL_SECTION* section, Where where)
{
    Step("try to enter", section, where);
    section->liveness.Check();
    if (section->holder != CurrentThread() && !section->IsFree()) {
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

extern "C" void SetLastError(DWORD /*error*/) {}

} // namespace qv::platform
