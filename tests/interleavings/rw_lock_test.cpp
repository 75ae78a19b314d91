// The reader-writer lock in all interleavings of short programs.
//
// A program is a string of calls:
//   r R  acquire and release a read       w W  acquire and release a write
//   t T  try a read and a write; the release of what was not had is left out
//   x    acquires a write, but fails if it has to wait
//   ! ?  let those go on that wait; wait
#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "interleavings/explored_atomic.h" // last before what is explored
#include "interleavings/programs.h"

#include "locks/rw_lock.h"

using namespace qv::explore;

constexpr int kThreads = 3;

// What the threads of a program hold, as they themselves count it.
struct Holds
{
    int reads = 0;
    int writes = 0;
    bool isInCall = false; // then the call may have changed the lock already
};

class RWLockInspector
{
public:
    RWLockInspector()
    {
        Name(m_lock.m_lockSection, "m_lock");
        Name(m_lock.m_arraySection, "m_arrayLock");
        Name(&Gate(), "the gate");
        Name(&m_lock.m_holdCount, "m_holdCount");
        Name(&m_lock.m_waitingWriter, "m_waitingWriter");
        Name(&m_lock.m_writing, "m_writing");
    }

    void Call(char letter);
    void CheckStep()
    {
        CheckExclusion();
        if (!IsChanging()) {
            m_lock.m_writing.Seen() ? CheckWriting() : CheckReading();
        }
    }
    void CheckEnd()
    {
        CheckStep();
        Require(m_lock.m_holdCount.Seen() == 0 && !m_lock.m_writing.Seen() &&
                    m_lock.m_waitingWriter.Seen() == 0 && m_lock.m_lockSection->IsFree(),
                "the lock is not free at the end");
    }

private:
    using Event = qv::platform::EventObject;

    Holds& Of(int thread) { return m_holds[static_cast<std::size_t>(thread)]; }
    Event& Gate() const
    {
        // A gate begins with its record.
        const auto* const record =
            reinterpret_cast<const qv::core::WaitRecord*>(m_lock.m_writerGate);
        return *qv::core::ObjectOf<Event>(*record);
    }
    int Holder() const { return m_lock.m_lockSection->holder; }
    int EntryOf(int thread)
    {
        const auto* const entry = m_lock.m_readers.Find(static_cast<std::uint32_t>(thread + 1));
        return entry != nullptr ? entry->count : 0;
    }

    void CheckExclusion()
    {
        int holders = 0;
        int writers = 0;
        for (const Holds& holds : m_holds) {
            holders += holds.reads + holds.writes != 0 ? 1 : 0;
            writers += holds.writes != 0 ? 1 : 0;
        }
        Require(writers == 0 || holders == 1, "a thread writes while another holds the lock");
    }
    // A call with m_arrayLock, or with m_lock and not asleep at the gate, is at its changes.
    bool IsChanging()
    {
        return !m_lock.m_arraySection->IsFree() ||
               (Holder() >= 0 && Of(Holder()).isInCall && !Gate().SeenAwaited());
    }
    void CheckWriting()
    {
        Require(Holder() >= 0, "somebody writes without m_lock");
        const Holds& writer = Of(Holder());
        const int depth = static_cast<int>(m_lock.m_lockSection->depth) + 1;
        Require(depth == m_lock.m_holdCount.Seen() && depth == writer.writes,
                "m_lock is not held once for each write");
        Require(m_lock.m_savedReadCount == writer.reads, "m_savedReadCount is wrong");
    }
    void CheckReading()
    {
        int sum = 0;
        bool othersRead = false;
        for (int i = 0; i < kThreads; ++i) {
            sum += EntryOf(i);
            const bool waits = static_cast<int>(m_lock.m_waitingWriter.Seen()) == i + 1;
            othersRead = othersRead || (EntryOf(i) != 0 && !waits);
            Require(Of(i).isInCall || EntryOf(i) == Of(i).reads, "a thread's entry is wrong");
        }
        Require(sum == m_lock.m_holdCount.Seen(), "m_holdCount is not the sum of the reads");
        Require(m_lock.m_savedReadCount == 0, "m_savedReadCount is left");
        Require(!othersRead || !Gate().SeenOpen(), "the gate is open while others read");
    }

    CQVRWLockImpl m_lock{"lock", 0};
    std::array<Holds, kThreads> m_holds;
    bool m_mayGoOn = false;
};

void RWLockInspector::Call(char letter)
{
    using Lock = CQVRWLockImpl;
    static constexpr struct
    {
        const char* name;
        QVRESULT (Lock::*method)();
        int Holds::*count;
        int change;
        bool mayFail;
    } calls[] = {
        {"AcquireRead", &Lock::AcquireRead, &Holds::reads, 1, false},
        {"AcquireWrite", &Lock::AcquireWrite, &Holds::writes, 1, false},
        {"AcquireWrite", &Lock::AcquireWrite, &Holds::writes, 1, true},
        {"TryAcquireRead", &Lock::TryAcquireRead, &Holds::reads, 1, true},
        {"TryAcquireWrite", &Lock::TryAcquireWrite, &Holds::writes, 1, true},
        {"ReleaseRead", &Lock::ReleaseRead, &Holds::reads, -1, false},
        {"ReleaseWrite", &Lock::ReleaseWrite, &Holds::writes, -1, false},
    };
    if (letter == '!') {
        m_mayGoOn = true;
        return;
    }
    if (letter == '?') {
        Await("waits for !", nullptr, Here(), [this] { return m_mayGoOn; });
        return;
    }
    if (letter == 'x') {
        Gate().failing = CurrentThread();
    }
    const auto& call = calls[std::string_view("rwxtTRW").find(letter)];
    Holds& holds = Of(CurrentThread());
    int& count = holds.*call.count;
    if (count + call.change < 0) {
        return;
    }
    Say(call.name);
    count += std::min(call.change, 0);
    holds.isInCall = true;
    const bool isDone = (m_lock.*call.method)() == S_OK;
    holds.isInCall = false;
    count += isDone ? std::max(call.change, 0) : 0;
    Require(isDone || call.mayFail, "a call failed");
}

// A thread that reads must not ask for write while another is on its way there: so beside an
// upgrade the others read, or only try to write, or wait until it is done.
TEST(RWLockInterleavings, HoldInAll)
{
    const std::pair<std::vector<std::string>, int> rows[] = {
        // and the preemptions
        {{"rR", "wW"}, 4},         {{"rrRR", "wwWW"}, 4},     {{"rwWR", "rR"}, 4},
        {{"rwRW", "rR"}, 4},       {{"wrWR", "wW"}, 4},       {{"wrRW", "rR"}, 4},
        {{"tR", "TW"}, 4},         {{"rTWR", "rTWR"}, 4},     {{"rxWR", "rR"}, 4},
        {{"rR", "wW", "wW"}, 3},   {{"rR", "rR", "wW"}, 3},   {{"rrRR", "rR", "wW"}, 3},
        {{"wrWR", "wW", "rR"}, 3}, {{"wwWW", "TW", "tR"}, 3}, {{"rwWR", "rR", "rR"}, 2},
        {{"rwWR", "rR", "TW"}, 3}, {{"rxWR", "rR", "TW"}, 3}, {{"rw!WR", "rR", "?wW"}, 2},
        {{"rTWR", "rR", "wW"}, 3},
    };
    std::vector<Program> programs;
    for (const auto& [threads, preemptions] : rows) {
        programs.push_back(Calls<RWLockInspector>("", threads, {.preemptions = preemptions}));
    }
    ExpectHold(programs);
}
