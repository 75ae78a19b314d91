// The explorer itself: that it tries all orders, and says what goes wrong.
#include <gtest/gtest.h>

#include <set>
#include <utility>

#include "interleavings/explorer.h"

using namespace qv::explore;

namespace
{

void TakeStep()
{
    Step("step", nullptr, Here());
}

// The words that two threads of two letters each write.
std::set<std::string> Words(int preemptions, long schedules)
{
    std::set<std::string> words;
    std::string word;
    const auto write = [&word](char letter) {
        for (int i = 0; i < 2; ++i) {
            TakeStep();
            word += letter;
        }
    };
    const auto make = [&] {
        word.clear();
        return Scenario{.threads = {[&] { write('a'); }, [&] { write('b'); }},
                        .atEnd = [&] { words.insert(word); }};
    };
    EXPECT_EQ(Explore({.preemptions = preemptions}, make).schedules, schedules);
    return words;
}

} // namespace

TEST(Explorer, TriesAllOrdersOnce)
{
    // A thread stands before its beginning and its two steps: as many orders as there are ways to
    // choose 3 places out of 6.
    EXPECT_EQ(Words(100, 20),
              (std::set<std::string>{"aabb", "abab", "abba", "baab", "baba", "bbaa"}));
    EXPECT_EQ(Words(1, 6), (std::set<std::string>{"aabb", "abba", "baab", "bbaa"}));
    EXPECT_EQ(Words(0, 2), (std::set<std::string>{"aabb", "bbaa"}));
}

TEST(Explorer, SaysWhatGoesWrong)
{
    const auto never = [] { Await("waits in vain", nullptr, Here(), [] { return false; }); };
    const auto endless = [] {
        for (;;) {
            TakeStep();
        }
    };
    const auto wrong = [] {
        TakeStep();
        Require(false, "something wrong");
    };
    const std::pair<Scenario, const char*> rows[] = {
        {{.threads = {never}}, "deadlock"},
        {{.threads = {endless}}, "endless"},
        {{.threads = {wrong}}, "something wrong\n  thread 0  begins"},
        {{.threads = {wrong}}, "(explorer_test.cpp:"},
        {{.threads = {}, .atEnd = [] { Require(false, "at the end"); }}, "at the end"},
    };
    for (const auto& row : rows) {
        const std::string failure = Explore({}, [&row] { return row.first; }).failure;
        EXPECT_NE(failure.find(row.second), std::string::npos) << failure;
    }
}

TEST(Explorer, LetsWaitsRunOutAtAnyMoment)
{
    static bool isSet = false;
    static Awaited how = Awaited::Ready;
    std::set<int> endings;
    const auto wait = [] {
        how = Await(
            "waits", nullptr, Here(), [] { return isSet; }, Wakeable::ByTimeOutToo);
    };
    const auto set = [] {
        TakeStep();
        isSet = true;
    };
    const auto make = [&] {
        isSet = false;
        return Scenario{.threads = {wait, set},
                        .atEnd = [&] { endings.insert(static_cast<int>(how)); }};
    };
    Explore({}, make);
    EXPECT_EQ(endings.size(), 2U); // in time and out of time
    Explore({.earlyWakes = 1}, make);
    EXPECT_EQ(endings.size(), 3U);
}
