// Runs short programs of a few threads in every order that their steps can take.
//
// The threads are fibers of one thread. Models of the primitives stop at each step, and there the
// explorer decides who goes on; it starts over until all decisions have been tried, depth first.
// Taking the turn from a thread that could go on is a preemption: their number is bounded, as few
// are enough to show a fault and each one more multiplies the schedules. Memory is sequentially
// consistent here: weaker orders are ThreadSanitizer's to check.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace qv::explore
{

struct Scenario
{
    std::vector<std::function<void()>> threads;
    std::function<void()> afterEachStep = [] {};
    std::function<void()> atEnd = [] {};
};

struct Limits
{
    int preemptions = 3;
    int earlyWakes = 0;             // sleeps that end for no reason, in one schedule
    std::size_t stepsAtMost = 2000; // more count as endless
};

struct Outcome
{
    long schedules = 0;
    std::string failure; // what went wrong and the schedule; empty if nothing did
};

// Makes a scenario for each schedule. Ends at the first schedule that fails: by Require, by a
// deadlock or by going on for ever.
Outcome Explore(const Limits& limits, const std::function<Scenario()>& make);

// For scenarios and models. A schedule that fails does not return.
void Require(bool holds, const char* what);
// The running thread, from 0; -1 outside of all.
int CurrentThread();

// A step of a model is about to be taken.
struct Where
{
    const char* file;
    unsigned line;
};
// As a default argument it is the place of the call. Not std::source_location, which Clang 14
// lacks.
constexpr Where Here(const char* file = __builtin_FILE(), unsigned line = __builtin_LINE())
{
    return {file, line};
}
void Step(const char* what, const void* object, Where where);

// For the story of a failed schedule: what the running thread is at, and an object's name.
void Say(const char* what);
void Name(const void* object, const char* name);

// The same for one that has to wait. The thread goes on only when it is ready.
enum class Wakeable
{
    WhenReady,
    EarlyToo,     // within Limits::earlyWakes
    ByTimeOutToo, // at any moment
};
enum class Awaited
{
    Ready,
    WokenEarly,
    TimedOut,
};
Awaited Await(const char* what, const void* object, Where where, std::function<bool()> isReady,
              Wakeable wakeable = Wakeable::WhenReady);

// Waits until so many threads sleep on something that can also end early or run out of time.
void AwaitSleepers(int count, Where where = Here());

} // namespace qv::explore
