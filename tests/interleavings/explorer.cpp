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
#include <utility>

#include "interleavings/fiber_sanitizers.h"

namespace qv::explore
{

namespace
{

constexpr std::size_t kStackSize = 65536;

// The step that a thread stands before.
struct Stand
{
    const char* said = "";
    const char* what = "begins";
    const void* object = nullptr;
    Where where = Here();
    std::function<bool()> isReady = {}; // none: at once
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

    bool CanGoOn() const { return !hasEnded && (!stand.isReady || stand.isReady()); }
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

struct Explorer* g_explorer = nullptr;

struct Explorer
{
    static constexpr int kNobody = -1;

    explicit Explorer(const Limits& limits) : m_limits(limits) {}

    Outcome Run(const std::function<Scenario()>& make)
    {
        Outcome outcome;
        do {
            m_names.clear();
            RunSchedule(make());
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

    Awaited StandBefore(Stand stand)
    {
        if (m_current == kNobody) {
            return Awaited::Ready; // the scenario is being made or looked at
        }
        Fiber& self = At(m_current);
        stand.said = self.stand.said;
        self.stand = std::move(stand);
        m_scenario.afterEachStep();
        SwitchTo(Decide());
        return self.awaited;
    }

    [[noreturn]] void Fail(const char* what)
    {
        m_wrong = what;
        if (m_current == kNobody) {
            throw ScheduleFailed();
        }
        SwitchTo(kNobody);
        std::abort(); // a failed schedule is not gone on with
    }

    // One schedule a round.
    static void Body()
    {
        g_explorer->At(g_explorer->m_current).sanitizer.Arrived();
        for (;;) {
            Explorer& explorer = *g_explorer;
            const int self = explorer.m_current;
            explorer.m_scenario.threads[static_cast<std::size_t>(self)]();
            explorer.At(self).hasEnded = true;
            explorer.m_scenario.afterEachStep();
            explorer.SwitchTo(explorer.Decide());
        }
    }

    static std::unique_ptr<Fiber> MakeFiber()
    {
        auto fiber = std::make_unique<Fiber>();
        fiber->stack = std::make_unique<std::byte[]>(kStackSize);
        fiber->sanitizer.Create(fiber->stack.get(), kStackSize);
        getcontext(&fiber->context);
        fiber->context.uc_stack.ss_sp = fiber->stack.get();
        fiber->context.uc_stack.ss_size = kStackSize;
        makecontext(&fiber->context, &Body, 0);
        return fiber;
    }

    Fiber& At(int fiber)
    {
        return fiber == kNobody ? m_main : *m_fibers[static_cast<std::size_t>(fiber)];
    }

    void SwitchTo(int fiber)
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

    void AddOptionsOf(int index)
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

    // The one who goes on. Nobody if all have ended.
    int Decide()
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

    void RunSchedule(Scenario scenario)
    {
        m_preemptions = 0;
        m_earlyWakes = 0;
        m_story.clear();
        m_scenario = std::move(scenario);
        while (m_fibers.size() < m_scenario.threads.size()) {
            m_fibers.push_back(MakeFiber());
        }
        for (const auto& fiber : m_fibers) {
            fiber->hasEnded = false;
            fiber->stand = {};
        }
        try {
            // Who begins is a free choice: all stand before their first step, and none has the
            // turn.
            SwitchTo(Decide());
            if (m_wrong == nullptr) {
                m_scenario.atEnd();
            }
        } catch (const ScheduleFailed&) {
            // told in m_wrong
        }
    }

    bool NextSchedule()
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

    std::string Story() const
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
            text << (option.fiber == previous ? std::string(thread.size(), ' ') : thread)
                 << stand.said << (*stand.said != '\0' ? ": " : "") << stand.what << ' '
                 << (name != m_names.end() ? name->second : "")
                 << (option.how == Awaited::TimedOut ? ", times out" : "")
                 << (option.how == Awaited::WokenEarly ? ", wakes early" : "") << "  ("
                 << file.substr(file.rfind('/') + 1) << ':' << stand.where.line << ")\n";
            previous = option.fiber;
        }
        return text.str();
    }

    const Limits m_limits;
    Scenario m_scenario;
    std::vector<std::unique_ptr<Fiber>> m_fibers;
    Fiber m_main;
    int m_current = kNobody;
    std::vector<Option> m_options;
    std::vector<Decision> m_decisions;
    int m_preemptions = 0;
    int m_earlyWakes = 0;
    std::vector<std::pair<Option, Stand>> m_story;
    std::map<const void*, const char*> m_names;
    const char* m_wrong = nullptr; // with the schedule
};

} // namespace

Outcome Explore(const Limits& limits, const std::function<Scenario()>& make)
{
    Explorer explorer(limits);
    g_explorer = &explorer;
    Outcome outcome = explorer.Run(make);
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
    return g_explorer != nullptr ? g_explorer->m_current : -1;
}

void Say(const char* what)
{
    g_explorer->At(CurrentThread()).stand.said = what;
}

void Name(const void* object, const char* name)
{
    g_explorer->m_names.emplace(object, name);
}

void Step(const char* what, const void* object, Where where)
{
    Await(what, object, where, {});
}

void AwaitSleepers(int count, Where where)
{
    Await("waits for sleepers", nullptr, where, [count] {
        const auto& fibers = g_explorer->m_fibers;
        return count <= std::count_if(fibers.begin(), fibers.end(),
                                      [](const auto& fiber) { return fiber->Sleeps(); });
    });
}

Awaited Await(const char* what, const void* object, Where where, std::function<bool()> isReady,
              Wakeable wakeable)
{
    // Models are used outside of explorations too, where they never have to wait.
    return g_explorer != nullptr
               ? g_explorer->StandBefore({"", what, object, where, std::move(isReady), wakeable})
               : Awaited::Ready;
}

} // namespace qv::explore
