// Events and gates: the paths that meet nobody, and two pinned threads that signal each other.
#include <benchmark/benchmark.h>
#include <qvcore6/event.h>
#include <qvcore6/gate.h>
#include <sys/eventfd.h>
#include <unistd.h>

#if QV_BENCH_HAS_POCO
#include <Poco/Event.h>
#endif
#if QV_BENCH_HAS_APR
#include <apr_general.h>
#include <apr_thread_cond.h>
#endif

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include "empty_calls.h"
#include "pin.h"
#include "ratio.h"

namespace
{

enum class Kind
{
    Auto,
    Manual,
};

class OurEvent
{
public:
    explicit OurEvent(Kind kind)
    {
        QVEventCreate("bench", kind == Kind::Manual ? QV_EVENT_MANUAL_RESET : 0, &m_event);
    }
    ~OurEvent() { QVEventDestroy(m_event); }
    OurEvent(const OurEvent&) = delete;
    OurEvent& operator=(const OurEvent&) = delete;
    void Signal() { QVEventSignal(m_event); }
    void Reset() { QVEventReset(m_event); }
    void Wait() { QVEventWait(m_event); }

private:
    QVEvent m_event;
};

class OurGate
{
public:
    explicit OurGate(Kind /*kind*/) { QVGateCreate("bench", 0, &m_gate); }
    ~OurGate() { QVGateDestroy(m_gate); }
    OurGate(const OurGate&) = delete;
    OurGate& operator=(const OurGate&) = delete;
    void Signal() { QVGateOpen(m_gate); }
    void Reset() { QVGateClose(m_gate); }
    void Wait() { QVGateWait(m_gate); }

private:
    QVGate m_gate;
};

// What one writes by hand.
class Standard
{
public:
    explicit Standard(Kind kind) : m_kind(kind) {}
    void Signal()
    {
        {
            const std::lock_guard lock(m_mutex);
            m_signalled = true;
        }
        if (m_kind == Kind::Auto) {
            m_condition.notify_one();
        } else {
            m_condition.notify_all();
        }
    }
    void Reset()
    {
        const std::lock_guard lock(m_mutex);
        m_signalled = false;
    }
    void Wait()
    {
        std::unique_lock lock(m_mutex);
        m_condition.wait(lock, [this] { return m_signalled; });
        m_signalled = m_kind == Kind::Manual;
    }

private:
    const Kind m_kind;
    std::mutex m_mutex;
    std::condition_variable m_condition;
    bool m_signalled = false;
};

#if QV_BENCH_HAS_POCO
class PocoEvent
{
public:
    explicit PocoEvent(Kind kind) : m_event(kind == Kind::Auto) {}
    void Signal() { m_event.set(); }
    void Reset() { m_event.reset(); }
    void Wait() { m_event.wait(); }

private:
    Poco::Event m_event;
};
#endif

#if QV_BENCH_HAS_APR
class Apr
{
public:
    explicit Apr(Kind kind) : m_kind(kind)
    {
        apr_initialize();
        apr_pool_create(&m_pool, nullptr);
        apr_thread_mutex_create(&m_mutex, APR_THREAD_MUTEX_UNNESTED, m_pool);
        apr_thread_cond_create(&m_condition, m_pool);
    }
    ~Apr()
    {
        apr_pool_destroy(m_pool);
        apr_terminate();
    }
    Apr(const Apr&) = delete;
    Apr& operator=(const Apr&) = delete;
    void Signal()
    {
        apr_thread_mutex_lock(m_mutex);
        m_signalled = true;
        apr_thread_mutex_unlock(m_mutex);
        if (m_kind == Kind::Auto) {
            apr_thread_cond_signal(m_condition);
        } else {
            apr_thread_cond_broadcast(m_condition);
        }
    }
    void Reset()
    {
        apr_thread_mutex_lock(m_mutex);
        m_signalled = false;
        apr_thread_mutex_unlock(m_mutex);
    }
    void Wait()
    {
        apr_thread_mutex_lock(m_mutex);
        while (!m_signalled) {
            apr_thread_cond_wait(m_condition, m_mutex);
        }
        m_signalled = m_kind == Kind::Manual;
        apr_thread_mutex_unlock(m_mutex);
    }

private:
    const Kind m_kind;
    apr_pool_t* m_pool = nullptr;
    apr_thread_mutex_t* m_mutex = nullptr;
    apr_thread_cond_t* m_condition = nullptr;
    bool m_signalled = false;
};
#endif

class EventFd
{
public:
    explicit EventFd(Kind /*kind*/) : m_descriptor(eventfd(0, EFD_CLOEXEC)) {}
    ~EventFd() { close(m_descriptor); }
    EventFd(const EventFd&) = delete;
    EventFd& operator=(const EventFd&) = delete;
    void Signal() { eventfd_write(m_descriptor, 1); }
    void Wait()
    {
        std::uint64_t count = 0;
        eventfd_read(m_descriptor, &count);
    }

private:
    int m_descriptor;
};

// What two exported calls cost that do nothing.
class Empty
{
public:
    explicit Empty(Kind /*kind*/) {}
    void Signal() { EmptyExportedAcquire(m_object); }
    void Wait() { EmptyExportedRelease(m_object); }

private:
    EmptyObject* m_object = MakeEmptyObject();
};

template <class Event> void Manual(benchmark::State& state)
{
    Event event(Kind::Manual);
    for (auto _ : state) {
        event.Signal();
        event.Wait();
        event.Reset();
    }
}

template <class Event> void Auto(benchmark::State& state)
{
    Event event(Kind::Auto);
    for (auto _ : state) {
        event.Signal();
        event.Wait();
    }
}

// The time of one round trip.
template <class Event> void PingPong(benchmark::State& state)
{
    constexpr int kRounds = 20000;
    for (auto _ : state) {
        Event there(Kind::Auto);
        Event back(Kind::Auto);
        const bench::Pinned pinned(0);
        std::thread other([&] {
            const bench::Pinned otherPinned(1);
            for (int round = 0; round <= kRounds; ++round) {
                there.Wait();
                back.Signal();
            }
        });
        there.Signal();
        back.Wait();
        const auto begin = std::chrono::steady_clock::now();
        for (int round = 0; round < kRounds; ++round) {
            there.Signal();
            back.Wait();
        }
        const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
        other.join();
        state.SetIterationTime(time.count() / kRounds);
    }
}

template <class Event> void Add(const std::string& name)
{
    benchmark::RegisterBenchmark(("event/manual/" + name).c_str(), Manual<Event>);
    benchmark::RegisterBenchmark(("event/auto/" + name).c_str(), Auto<Event>);
}

template <class Event> void AddPingPong(const std::string& name)
{
    benchmark::RegisterBenchmark(("event/pingpong/" + name).c_str(), PingPong<Event>)
        ->UseManualTime()
        ->Iterations(1);
}

bool AddAll()
{
    Add<OurEvent>("QVEvent");
    benchmark::RegisterBenchmark("event/manual/QVGate", Manual<OurGate>);
    benchmark::RegisterBenchmark("event/auto/empty", Auto<Empty>);
    Add<Standard>("std::condition_variable");
    AddPingPong<OurEvent>("QVEvent");
    AddPingPong<Standard>("std::condition_variable");
    AddPingPong<EventFd>("eventfd");
#if QV_BENCH_HAS_POCO
    Add<PocoEvent>("Poco::Event");
#endif
#if QV_BENCH_HAS_APR
    Add<Apr>("apr_thread_cond");
#endif
    return true;
}

const bool g_registered = AddAll();

const std::string kStandard = "std::condition_variable";

const bool g_added = bench::AddGoals({
    {"manual event", "event/manual/QVEvent", "event/manual/" + kStandard, 0.3},
    {"manual event", "event/manual/QVEvent", "event/manual/Poco::Event", 0.3},
    {"manual event", "event/manual/QVEvent", "event/manual/apr_thread_cond", 0.3},
    {"gate", "event/manual/QVGate", "event/manual/" + kStandard, 0.3},
    {"gate", "event/manual/QVGate", "event/manual/Poco::Event", 0.3},
    {"gate", "event/manual/QVGate", "event/manual/apr_thread_cond", 0.3},
    {"auto-reset event", "event/auto/QVEvent", "event/auto/" + kStandard, 0.3},
    {"auto-reset event", "event/auto/QVEvent", "event/auto/Poco::Event", 0.3},
    {"auto-reset event", "event/auto/QVEvent", "event/auto/apr_thread_cond", 0.3},
    {"auto-reset event", "event/auto/QVEvent", "event/auto/empty", 0},
    {"two events, round trip", "event/pingpong/QVEvent", "event/pingpong/" + kStandard, 1.05},
    {"two events, round trip", "event/pingpong/QVEvent", "event/pingpong/eventfd", 1.05},
});

} // namespace
