// Which names are this computer's, on networks and resolvers of the tests' own.
#include <qvcore6/address.h>

#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "host/fake_network.h"
#include "support/child_process.h"

using namespace qv::test;

namespace
{

class ComputerNames : public Address
{};

TEST_F(ComputerNames, NamesAreResolvedOnce)
{
    Interfaces interfaces{"192.0.2.1", "fd00::1"};
    g_network.interfaces = [&] { return interfaces.Get(); };
    g_network.host = "Own-Name";
    bool failsNow = false;
    Texts asked;
    g_network.resolver = [&](const std::string& name, addrinfo** result) {
        asked.push_back(name);
        if (name == "localhost") {
            return Resolve({"127.0.0.1"}, result);
        }
        if (name == "odd") { // families that nobody knows before one that counts
            Resolve({"192.0.2.7", "192.0.2.1"}, result);
            (*result)->ai_family = AF_UNIX;
            return 0;
        }
        if (failsNow) {
            return EAI_NONAME;
        }
        return Resolve(name == "other"  ? Texts{"192.0.2.7", "fd00::7"}
                       : name == "mine" ? Texts{"192.0.2.7", "fd00::1"}
                       : name == "loop" ? Texts{"127.0.0.1"}
                                        : Texts{},
                       result);
    };
    EXPECT_EQ(1, QVIsThisMyComputerA("localhost"));
    EXPECT_EQ(Texts{"localhost"}, asked); // for the chains
    const std::string longName(1025, 'x');
    const struct
    {
        std::string name;
        int expected;
        Texts asked;
    } rows[] = {{"", 1, {}},
                {"LocalHost", 1, {}},
                {"127.0.0.1", 1, {}},
                {"::1", 1, {}},
                {"oWN-nAME", 1, {}},
                {"Mine", 1, {"mine"}},
                {"OTHER", 0, {"other"}},
                {"loop", 1, {"loop"}},
                {"odd", 1, {"odd"}},
                {"unknown", 0, {"unknown"}},
                {longName + "a", 0, {longName}},
                {longName + "b", 0, {}},
                {"FE80--1s4.IPv6-Literal.Net", 0, {"fe80::1%4"}}};
    for (const auto& row : rows) {
        asked.clear();
        EXPECT_EQ(row.expected, QVIsThisMyComputerA(row.name.c_str())) << row.name;
        EXPECT_EQ(row.asked, asked) << row.name;
    }
    failsNow = true;
    asked.clear();
    for (const auto& row : rows) {
        EXPECT_EQ(row.expected, QVIsThisMyComputerA(row.name.c_str())) << row.name;
    }
    EXPECT_EQ(1, QVIsThisMyComputerW(u"MINE"));
    EXPECT_EQ(0, QVIsThisMyComputerW(u"other"));
    EXPECT_EQ(0, QVIsThisMyComputerW(std::u16string(1026, u'x').c_str()));
    EXPECT_EQ(Texts{}, asked);
    EXPECT_EQ(0, QVIsThisMyComputerW(u"\u00E9t\u00E9"));
    EXPECT_EQ(Texts{"\u00E9t\u00E9"}, asked);
}

// A resolver that takes its time holds up who asks for names, but neither a fork nor its child.
TEST_F(ComputerNames, ForksDoNotWaitForTheResolver)
{
    std::atomic<bool> isResolving = false;
    std::atomic<bool> mayAnswer = false;
    g_network.resolver = [&](const std::string& name, addrinfo** result) {
        if (name == "slow") {
            isResolving = true;
            Becomes([&] { return mayAnswer.load(); }, std::chrono::seconds(60));
        }
        return Resolve({name == "slow" ? "192.0.2.7" : "127.0.0.1"}, result);
    };
    EXPECT_EQ(1, QVIsThisMyComputerA("known"));
    std::int16_t slow = 0;
    std::thread asking([&] { slow = QVIsThisMyComputerA("slow"); });
    EXPECT_TRUE(Becomes([&] { return isResolving.load(); }));
    addrinfo* chains[2] = {};
    EXPECT_EQ(S_OK, QVGetMyAddressInformation(&chains[0], &chains[1]));
    Child child([&] {
        alarm(20);
        mayAnswer = true; // the child's own
        const int asked = g_resolutions;
        addrinfo* own[2] = {};
        return QVIsThisMyComputerA("known") == 1 && g_resolutions == asked &&
               QVIsThisMyComputerA("slow") == 0 && QVIsThisMyComputerA("new") == 1 &&
               QVGetMyAddressInformation(&own[0], &own[1]) == S_OK && own[0] == chains[0];
    });
    EXPECT_TRUE(child.Succeeded());
    mayAnswer = true;
    asking.join();
    EXPECT_EQ(0, slow);
}

TEST_F(ComputerNames, BearsThreadsAndForks)
{
    g_network.resolver = [](const std::string& name, addrinfo** result) {
        return Resolve({name.starts_with("no") ? "192.0.2.7" : "127.0.0.1"}, result);
    };
    std::atomic<int> wrong = 0;
    std::atomic<int> forks = 20;
    const auto ask = [&](int i) {
        addrinfo* chains[2] = {};
        const std::string number = std::to_string(i);
        return QVIsThisMyComputerA(("yes" + number).c_str()) == 1 &&
               QVIsThisMyComputerA(("no" + number).c_str()) == 0 &&
               QVGetMyAddressInformation(&chains[0], &chains[1]) == S_OK && chains[1] != nullptr;
    };
    std::vector<std::thread> threads(8);
    for (std::thread& thread : threads) {
        thread = std::thread([&, first = static_cast<int>(&thread - threads.data()) * 10] {
            for (int i = 0; i < 200 || forks > 0; ++i) {
                wrong += ask(first + i % 500) ? 0 : 1;
            }
        });
    }
    for (; forks > 0; --forks) {
        Child child([&] {
            alarm(20);
            return ask(-1) && ask(7);
        });
        EXPECT_TRUE(child.Succeeded());
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0, wrong);
}

constexpr int kLeftOut = 77;

// Runs the commands in a network of its own, then the test. False if there may be none.
bool InNetwork(const Texts& commands, const std::function<void()>& test)
{
    Child child([&] {
        alarm(60);
        if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) {
            _exit(kLeftOut);
        }
        for (const std::string& command : commands) {
            if (std::system(command.c_str()) != 0) {
                _exit(kLeftOut);
            }
        }
        test();
        return !testing::Test::HasFailure();
    });
    const int status = child.Status();
    EXPECT_TRUE(status == 0 || status == kLeftOut) << status;
    return status == 0;
}

Texts Sorted(Texts texts)
{
    std::sort(texts.begin(), texts.end());
    return texts;
}

TEST_F(ComputerNames, FollowTheNetworkOfTheKernel)
{
    const bool none = InNetwork({}, [] {
        addrinfo* mine = nullptr;
        addrinfo* localhost = nullptr;
        EXPECT_EQ(S_OK, QVGetMyAddressInformation(&mine, &localhost));
        EXPECT_EQ(Texts{}, Show(mine));
        EXPECT_EQ(1, QVIsThisMyComputerA("localhost"));
        EXPECT_EQ(0, QVIsThisMyComputerA("10.1.2.3"));
    });
    const Texts commands = {"ip link set lo up",
                            "ip addr add 10.9.9.9/32 dev lo",
                            "ip addr add fe80::1/64 dev lo",
                            "ip link add name va type veth peer name vb",
                            "ip link set va up",
                            "ip link set vb up",
                            "ip link add name vc type veth peer name vd",
                            "ip addr add 10.1.2.3/24 dev va",
                            "ip addr add 10.1.2.4/24 dev va",
                            "ip addr add 10.4.4.4/24 dev vc", // which stays down
                            "ip addr flush dev va scope link",
                            "ip addr flush dev vb scope link",
                            "ip addr add fd00::7/64 dev vb nodad",
                            "ip addr add fe80::5/64 dev va nodad",
                            "ip addr add fe80::6/64 dev vb nodad"};
    const bool several = InNetwork(commands, [] {
        addrinfo* mine = nullptr;
        addrinfo* localhost = nullptr;
        EXPECT_EQ(S_OK, QVGetMyAddressInformation(&mine, &localhost));
        EXPECT_EQ(
            (Texts{"10.1.2.3", "10.1.2.4", "10.9.9.9", "fd00::7", "fe80::5%va", "fe80::6%vb"}),
            Sorted(Show(mine)));
        ASSERT_NE(nullptr, localhost);
        EXPECT_EQ("fe80::1%lo", Show(localhost).front());
        const std::string scope = std::to_string(if_nametoindex("va"));
        const struct
        {
            std::string name;
            int expected;
        } rows[] = {{"10.1.2.3", 1},
                    {"10.9.9.9", 1},
                    {"FD00::7", 1},
                    {"fe80::5%" + scope, 1},
                    {"fe80--5s" + scope + ".ipv6-literal.net", 1},
                    {"fe80::1%" + scope, 1}, // the scope does not count
                    {"10.4.4.4", 0},
                    {"127.0.0.2", 0},
                    {"fd00::8", 0}};
        for (const auto& row : rows) {
            EXPECT_EQ(row.expected, QVIsThisMyComputerA(row.name.c_str())) << row.name;
        }
    });
    if (!none || !several) {
        GTEST_SKIP() << "left out: no right to make a network, or no ip command";
    }
}

} // namespace
