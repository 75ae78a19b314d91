// The explorer itself: that it tries all orders, and says what goes wrong.
#include <gtest/gtest.h>

#include <set>
#include <tuple>

#include "interleavings/explorer.h"

using namespace qv::explore;

namespace
{

void TakeStep()
{
    Step("step", nullptr, Here());
}

// Two threads of two letters each, and the words that they write.
Outcome Write(int preemptions, std::set<std::string>& words)
{
    static std::string word;
    return Explore({.preemptions = preemptions}, [&words] {
        word.clear();
        const auto write = [](char letter) {
            for (int i = 0; i < 2; ++i) {
                TakeStep();
                word += letter;
            }
        };
        return Scenario{.threads = {[write] { write('a'); }, [write] { write('b'); }},
                        .atEnd = [&words] { words.insert(word); }};
    });
}

} // namespace

TEST(Explorer, TriesAllOrdersOnce)
{
    std::set<std::string> words;
    // A thread stands before its beginning and its two steps: as many orders as there are ways to
    // choose 3 places out of 6.
    EXPECT_EQ(Write(100, words).schedules, 20);
    EXPECT_EQ(words, (std::set<std::string>{"aabb", "abab", "abba", "baab", "baba", "bbaa"}));
    words.clear();
    EXPECT_EQ(Write(0, words).schedules, 2);
    EXPECT_EQ(words, (std::set<std::string>{"aabb", "bbaa"}));
    words.clear();
    Write(1, words);
    EXPECT_EQ(words, (std::set<std::string>{"aabb", "abba", "baab", "bbaa"}));
}

TEST(Explorer, SaysWhatGoesWrong)
{
    const auto never = [] {
        Await(
            "waits in vain", Here(), [](const void*) { return false; }, nullptr);
    };
    const auto endless = [] {
        for (;;) {
            TakeStep();
        }
    };
    const auto wrong = [] {
        TakeStep();
        Require(false, "something wrong");
    };
    const std::tuple<std::function<void()>, std::function<void()>, const char*> rows[] = {
        {never, [] {}, "deadlock"},
        {endless, [] {}, "endless"},
        {wrong, [] {}, "something wrong\n  thread 0  begins"},
        {wrong, [] {}, "(explorer_test.cpp:"},
        {[] {}, [] { Require(false, "at the end"); }, "at the end"},
    };
    for (const auto& [body, atEnd, said] : rows) {
        const Outcome outcome =
            Explore({}, [&] { return Scenario{.threads = {body}, .atEnd = atEnd}; });
        EXPECT_NE(outcome.failure.find(said), std::string::npos) << outcome.failure;
    }
}

TEST(Explorer, LetsWaitsRunOutAtAnyMoment)
{
    static bool isSet = false;
    static Awaited how = Awaited::Ready;
    std::set<int> endings;
    const auto wait = [] {
        const IsReady seesSet = [](const void*) { return isSet; };
        how = Await("waits", Here(), seesSet, nullptr, Wakeable::ByTimeOutToo);
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
