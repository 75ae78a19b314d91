#include "interleavings/explorer.h"

#include <ucontext.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <iterator>
#include <map>
#include <memory>
#include <span>
#include <sstream>

#include "interleavings/fiber_sanitizers.h"

namespace qv::explore
{

namespace
{

constexpr std::size_t kStackSize = 65536;

// The step that a thread stands before; ready at once without a condition.
struct Stand
{
    const char* said = "";
    const char* what = "begins";
    Where where = Here();
    IsReady isReady = nullptr;
    const void* object = nullptr;
    Wakeable wakeable = Wakeable::WhenReady;
};

struct Fiber
{
    FiberSanitizer sanitizer;
    ucontext_t context = {};
    std::unique_ptr<std::byte[]> stack;
    bool hasEnded = true;
    Stand stand = {};
    Awaited awaited = Awaited::Ready;

    bool CanGoOn() const
    {
        return !hasEnded && (stand.isReady == nullptr || stand.isReady(stand.object));
    }
    bool Sleeps() const { return !hasEnded && stand.wakeable != Wakeable::WhenReady && !CanGoOn(); }
};

struct ScheduleFailed
{};

struct Option
{
    int fiber;
    Awaited how;
};

struct Decision
{
    std::size_t taken;
    std::size_t options;
};

struct Taken
{
    Option option;
    Stand stand;
};

class Explorer
{
public:
    Explorer(const Limits& limits, const std::function<Scenario()>& make)
        : m_limits(limits), m_make(make)
    {}

    Outcome Run();
    Awaited StandBefore(const char* what, Where where, IsReady isReady, const void* object,
                        Wakeable wakeable);
    [[noreturn]] void Fail(const char* what);
    int Current() const { return m_current; }
    std::ptrdiff_t Sleepers() const
    {
        return std::count_if(m_fibers.begin(), m_fibers.end(),
                             [](const auto& fiber) { return fiber->Sleeps(); });
    }
    void Say(const char* what) { At(m_current).stand.said = what; }
    void Name(const void* object, const char* name) { m_names.emplace(object, name); }

private:
    static constexpr int kNobody = -1;

    static void Body();
    static std::unique_ptr<Fiber> MakeFiber();
    void RunSchedule();
    bool NextSchedule();
    void AddOptionsOf(int index);
    // The one who goes on. Nobody if all have ended.
    int Decide();
    void SwitchTo(int fiber);
    std::string Story() const;
    Fiber& At(int fiber)
    {
        return fiber == kNobody ? m_main : *m_fibers[static_cast<std::size_t>(fiber)];
    }

    const Limits m_limits;
    const std::function<Scenario()>& m_make;
    Scenario m_scenario;
    std::vector<std::unique_ptr<Fiber>> m_fibers;
    Fiber m_main;
    int m_current = kNobody;
    std::vector<Option> m_options;
    std::vector<Decision> m_decisions;
    int m_preemptions = 0;
    int m_earlyWakes = 0;
    std::vector<Taken> m_story;
    std::map<const void*, const char*> m_names;
    const char* m_wrong = nullptr; // with the schedule
};

Explorer* g_explorer = nullptr;

void Explorer::Body()
{
    g_explorer->At(g_explorer->m_current).sanitizer.Arrived();
    // One schedule a round.
    for (;;) {
        Explorer& explorer = *g_explorer;
        const int self = explorer.m_current;
        explorer.m_scenario.threads[static_cast<std::size_t>(self)]();
        explorer.At(self).hasEnded = true;
        explorer.m_scenario.afterEachStep();
        explorer.SwitchTo(explorer.Decide());
    }
}

std::unique_ptr<Fiber> Explorer::MakeFiber()
{
    auto fiber = std::make_unique<Fiber>();
    fiber->stack = std::make_unique<std::byte[]>(kStackSize);
    fiber->sanitizer.Create(fiber->stack.get(), kStackSize);
    getcontext(&fiber->context);
    fiber->context.uc_stack.ss_sp = fiber->stack.get();
    fiber->context.uc_stack.ss_size = kStackSize;
    makecontext(&fiber->context, &Explorer::Body, 0);
    return fiber;
}

void Explorer::SwitchTo(int fiber)
{
    const int from = m_current;
    if (from == fiber) {
        return;
    }
    m_current = fiber;
    At(from).sanitizer.Leave(At(fiber).sanitizer);
    swapcontext(&At(from).context, &At(fiber).context);
    At(from).sanitizer.Arrived();
}

void Explorer::AddOptionsOf(int index)
{
    const Fiber& fiber = At(index);
    if (fiber.CanGoOn()) {
        m_options.push_back({index, Awaited::Ready});
        return;
    }
    if (fiber.Sleeps() && fiber.stand.wakeable == Wakeable::ByTimeOutToo) {
        m_options.push_back({index, Awaited::TimedOut});
    }
    if (fiber.Sleeps() && m_earlyWakes < m_limits.earlyWakes) {
        m_options.push_back({index, Awaited::WokenEarly});
    }
}

int Explorer::Decide()
{
    const bool isRunning = At(m_current).CanGoOn();
    const bool isKept = isRunning && m_preemptions == m_limits.preemptions;
    m_options.clear();
    AddOptionsOf(m_current);
    for (int i = 0; i < static_cast<int>(m_fibers.size()) && !isKept; ++i) {
        if (i != m_current) {
            AddOptionsOf(i);
        }
    }
    if (m_options.empty()) {
        for (const auto& fiber : m_fibers) {
            if (!fiber->hasEnded) {
                Fail("deadlock: nobody can go on");
            }
        }
        return kNobody;
    }
    const std::size_t depth = m_story.size();
    if (depth == m_limits.stepsAtMost) {
        Fail("endless: the schedule has too many steps");
    }
    if (depth == m_decisions.size()) {
        m_decisions.push_back({0, m_options.size()});
    }
    if (m_decisions[depth].options != m_options.size()) {
        Fail("the scenario does not run the same way twice");
    }
    const Option option = m_options[m_decisions[depth].taken];
    m_preemptions += option.fiber != m_current && isRunning ? 1 : 0;
    m_earlyWakes += option.how == Awaited::WokenEarly ? 1 : 0;
    At(option.fiber).awaited = option.how;
    m_story.push_back({option, At(option.fiber).stand});
    return option.fiber;
}

Awaited Explorer::StandBefore(const char* what, Where where, IsReady isReady, const void* object,
                              Wakeable wakeable)
{
    if (m_current == kNobody) {
        return Awaited::Ready; // the scenario is being made or looked at
    }
    Fiber& self = At(m_current);
    self.stand = {self.stand.said, what, where, isReady, object, wakeable};
    m_scenario.afterEachStep();
    SwitchTo(Decide());
    return self.awaited;
}

void Explorer::Fail(const char* what)
{
    m_wrong = what;
    if (m_current == kNobody) {
        throw ScheduleFailed();
    }
    SwitchTo(kNobody);
    std::abort(); // a failed schedule is not gone on with
}

std::string Explorer::Story() const
{
    std::ostringstream text;
    int previous = kNobody;
    // The end of one that has no end says enough.
    constexpr std::size_t kLines = 100;
    const std::size_t left = m_story.size() > kLines ? m_story.size() - kLines : 0;
    for (const auto& [option, stand] : std::span(m_story).subspan(left)) {
        const std::string thread = "  thread " + std::to_string(option.fiber) + "  ";
        const std::string file = stand.where.file;
        const auto name = m_names.find(stand.object);
        text << (option.fiber == previous ? std::string(thread.size(), ' ') : thread) << stand.said
             << (*stand.said != '\0' ? ": " : "") << stand.what << ' '
             << (name != m_names.end() ? name->second : "")
             << (option.how == Awaited::TimedOut ? ", times out" : "")
             << (option.how == Awaited::WokenEarly ? ", wakes early" : "") << "  ("
             << file.substr(file.rfind('/') + 1) << ':' << stand.where.line << ")\n";
        previous = option.fiber;
    }
    return text.str();
}

void Explorer::RunSchedule()
{
    m_preemptions = 0;
    m_earlyWakes = 0;
    m_story.clear();
    m_names.clear();
    m_scenario = m_make();
    while (m_fibers.size() < m_scenario.threads.size()) {
        m_fibers.push_back(MakeFiber());
    }
    for (const auto& fiber : m_fibers) {
        fiber->hasEnded = false;
        fiber->stand = {};
    }
    try {
        // Who begins is a free choice: all stand before their first step, and none has the turn.
        SwitchTo(Decide());
        if (m_wrong == nullptr) {
            m_scenario.atEnd();
        }
    } catch (const ScheduleFailed&) {
        // told in m_wrong
    }
}

bool Explorer::NextSchedule()
{
    m_decisions.resize(m_story.size());
    while (!m_decisions.empty() && m_decisions.back().taken + 1 == m_decisions.back().options) {
        m_decisions.pop_back();
    }
    if (m_decisions.empty()) {
        return false;
    }
    ++m_decisions.back().taken;
    return true;
}

Outcome Explorer::Run()
{
    Outcome outcome;
    do {
        RunSchedule();
        ++outcome.schedules;
    } while (m_wrong == nullptr && NextSchedule());
    if (m_wrong != nullptr) {
        outcome.failure = std::string(m_wrong) + "\n" + Story();
        // What stands on the stacks of a failed schedule is never unwound; it stays in reach.
        static auto* const abandoned = new std::vector<std::unique_ptr<Fiber>>();
        std::move(m_fibers.begin(), m_fibers.end(), std::back_inserter(*abandoned));
    }
    return outcome;
}

} // namespace

Outcome Explore(const Limits& limits, const std::function<Scenario()>& make)
{
    Explorer explorer(limits, make);
    g_explorer = &explorer;
    Outcome outcome = explorer.Run();
    g_explorer = nullptr;
    return outcome;
}

void Require(bool holds, const char* what)
{
    if (!holds) {
        g_explorer->Fail(what);
    }
}

int CurrentThread()
{
    return g_explorer != nullptr ? g_explorer->Current() : -1;
}

void Step(const char* what, const void* object, Where where)
{
    Await(what, where, nullptr, object);
}

void Say(const char* what)
{
    g_explorer->Say(what);
}

void Name(const void* object, const char* name)
{
    g_explorer->Name(object, name);
}

void AwaitSleepers(int count, Where where)
{
    Await(
        "waits for sleepers", where,
        [](const void* wanted) {
            return g_explorer->Sleepers() >= *static_cast<const int*>(wanted);
        },
        &count);
}

Awaited Await(const char* what, Where where, IsReady isReady, const void* object, Wakeable wakeable)
{
    // Models are used outside of explorations too, where they never have to wait.
    return g_explorer != nullptr ? g_explorer->StandBefore(what, where, isReady, object, wakeable)
                                 : Awaited::Ready;
}

} // namespace qv::explore
