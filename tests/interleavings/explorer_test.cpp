// The explorer itself: that it tries all orders, and says what goes wrong.
#include <gtest/gtest.h>

#include <set>

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
    static bool isReady = false;
    const auto never = [] {
        Await(
            "waits in vain", Here(), [](const void*) { return isReady; }, nullptr);
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
    const auto failureOf = [](const std::function<void()>& body) {
        return Explore({}, [&] { return Scenario{.threads = {body}}; }).failure;
    };
    EXPECT_NE(failureOf(never).find("deadlock"), std::string::npos);
    EXPECT_NE(failureOf(endless).find("endless"), std::string::npos);
    const std::string story = failureOf(wrong);
    EXPECT_NE(story.find("something wrong"), std::string::npos);
    EXPECT_NE(story.find("explorer_test.cpp"), std::string::npos) << story;
    EXPECT_NE(
        Explore({},
                [] { return Scenario{.threads = {[] {}}, .atEnd = [] { Require(false, "end"); }}; })
            .failure,
        "");
}

TEST(Explorer, LetsWaitsRunOutAtAnyMoment)
{
    static bool isSet = false;
    std::set<int> endings;
    static Awaited how = Awaited::Ready;
    const auto make = [&endings] {
        isSet = false;
        return Scenario{.threads = {[] {
                                        how = Await(
                                            "waits", Here(), [](const void*) { return isSet; },
                                            nullptr, Wakeable::ByTimeOutToo);
                                    },
                                    [] {
                                        TakeStep();
                                        isSet = true;
                                    }},
                        .atEnd = [&endings] { endings.insert(static_cast<int>(how)); }};
    };
    Explore({}, make);
    EXPECT_EQ(endings.size(), 2U); // in time and out of time
    Explore({.earlyWakes = 1}, make);
    EXPECT_EQ(endings.size(), 3U);
}
