// The reader-writer lock in all interleavings of short programs.
//
// A program is a string of calls:
//   r R  acquire and release a read       w W  acquire and release a write
//   t T  try a read and a write; the release of what was not had is left out
//   x    acquires a write, but fails if it has to wait
//   ! ?  let those go on that wait; wait
#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>

#include "interleavings/explored_atomic.h" // last before what is explored
#include "interleavings/programs.h"

#include "locks/rw_lock.h"

using namespace qv::explore;
using qv::platform::CRITICAL_SECTION;

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

    CQVRWLockImpl& Lock() { return m_lock; }
    Holds& Of(int thread) { return m_holds[static_cast<std::size_t>(thread)]; }

    void FailWaits(int thread) { qv::core::ObjectOf<Event>(GateRecord())->failing = thread; }

    void CheckStep()
    {
        CheckExclusion();
        if (!IsChanging()) {
            m_lock.m_writing.Seen() ? CheckWriting() : CheckReading();
        }
    }
    void CheckFree()
    {
        CheckStep();
        Require(m_lock.m_holdCount.Seen() == 0 && !m_lock.m_writing.Seen() &&
                    m_lock.m_waitingWriter.Seen() == 0 && Holder() == CRITICAL_SECTION::kNobody,
                "the lock is not free at the end");
    }

private:
    using Event = qv::platform::EventObject;

    // A gate begins with its record.
    const qv::core::WaitRecord& GateRecord() const
    {
        return *reinterpret_cast<const qv::core::WaitRecord*>(m_lock.m_writerGate);
    }
    const Event& Gate() const { return *qv::core::ObjectOf<Event>(GateRecord()); }
    int Holder() const { return m_lock.m_lockSection->holder; }
    int EntryOf(int thread)
    {
        const auto* const entry = m_lock.m_readers.Find(static_cast<std::uint32_t>(thread + 1));
        return entry != nullptr ? entry->count : 0;
    }

    void CheckExclusion()
    {
        for (int writer = 0; writer < kThreads; ++writer) {
            for (int other = 0; other < kThreads && Of(writer).writes != 0; ++other) {
                Require(other == writer || Of(other).reads + Of(other).writes == 0,
                        "a thread writes while another holds the lock");
            }
        }
    }
    // A call with m_arrayLock, or with m_lock and not asleep at the gate, is at its changes.
    bool IsChanging()
    {
        return m_lock.m_arraySection->holder != CRITICAL_SECTION::kNobody ||
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
};

namespace
{

struct World
{
    RWLockInspector inspector;
    bool mayGoOn = false;
};

void RunCall(World& world, char call)
{
    CQVRWLockImpl& lock = world.inspector.Lock();
    Holds& holds = world.inspector.Of(CurrentThread());
    const auto done = [&holds](const char* name, QVRESULT (CQVRWLockImpl::*method)(),
                               CQVRWLockImpl& object) {
        Say(name);
        holds.isInCall = true;
        const QVRESULT result = (object.*method)();
        holds.isInCall = false;
        return result == S_OK;
    };
    const auto must = [](bool isDone) { Require(isDone, "a call failed"); };
    switch (call) {
    case 'r':
        must(done("AcquireRead", &CQVRWLockImpl::AcquireRead, lock));
        ++holds.reads;
        break;
    case 'w':
        must(done("AcquireWrite", &CQVRWLockImpl::AcquireWrite, lock));
        ++holds.writes;
        break;
    case 'x':
        world.inspector.FailWaits(CurrentThread());
        holds.writes += done("AcquireWrite", &CQVRWLockImpl::AcquireWrite, lock) ? 1 : 0;
        break;
    case 't':
        holds.reads += done("TryAcquireRead", &CQVRWLockImpl::TryAcquireRead, lock) ? 1 : 0;
        break;
    case 'T':
        holds.writes += done("TryAcquireWrite", &CQVRWLockImpl::TryAcquireWrite, lock) ? 1 : 0;
        break;
    case 'R':
        if (holds.reads != 0) {
            --holds.reads;
            must(done("ReleaseRead", &CQVRWLockImpl::ReleaseRead, lock));
        }
        break;
    case 'W':
        if (holds.writes != 0) {
            --holds.writes;
            must(done("ReleaseWrite", &CQVRWLockImpl::ReleaseWrite, lock));
        }
        break;
    case '!':
        world.mayGoOn = true;
        break;
    default:
        Say("?");
        Await(
            "waits for !", Here(),
            [](const void* mayGoOn) { return *static_cast<const bool*>(mayGoOn); }, &world.mayGoOn);
    }
}

Program Calls(std::initializer_list<const char*> threads, int preemptions = 3)
{
    std::string name;
    for (const char* const calls : threads) {
        name += name.empty() ? calls : std::string(" | ") + calls;
    }
    const std::vector<std::string> programs(threads.begin(), threads.end());
    return {name,
            [programs] {
                const auto world = std::make_shared<World>();
                Scenario scenario;
                for (const std::string& calls : programs) {
                    scenario.threads.push_back([world, &calls] {
                        for (const char call : calls) {
                            RunCall(*world, call);
                        }
                    });
                }
                scenario.afterEachStep = [world] { world->inspector.CheckStep(); };
                scenario.atEnd = [world] { world->inspector.CheckFree(); };
                return scenario;
            },
            {.preemptions = preemptions}};
}

} // namespace

// A thread that reads must not ask for write while another is on its way there: so beside an
// upgrade the others read, or only try to write, or wait until it is done.
TEST(RWLockInterleavings, HoldInAll)
{
    ExpectHold({
        Calls({"rR", "wW"}, 4),      Calls({"rrRR", "wwWW"}, 4),  Calls({"rwWR", "rR"}, 4),
        Calls({"rwRW", "rR"}, 4),    Calls({"wrWR", "wW"}, 4),    Calls({"wrRW", "rR"}, 4),
        Calls({"tR", "TW"}, 4),      Calls({"rTWR", "rTWR"}, 4),  Calls({"rxWR", "rR"}, 4),
        Calls({"rR", "wW", "wW"}),   Calls({"rR", "rR", "wW"}),   Calls({"rrRR", "rR", "wW"}),
        Calls({"wrWR", "wW", "rR"}), Calls({"wwWW", "TW", "tR"}), Calls({"rwWR", "rR", "rR"}, 2),
        Calls({"rwWR", "rR", "TW"}), Calls({"rxWR", "rR", "TW"}), Calls({"rw!WR", "rR", "?wW"}, 2),
        Calls({"rTWR", "rR", "wW"}),
    });
}
