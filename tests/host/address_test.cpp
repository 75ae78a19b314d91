// The machine's addresses and its host name, on networks and resolvers of the tests' own.
#include <qvcore6/address.h>

#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "host/computer_names.h"
#include "host/fake_network.h"
#include "host/my_addresses.h"
#include "support/alloc_faults.h"
#include "support/child_process.h"

using namespace qv::test;

namespace
{

TEST_F(Address, ChainsHoldWhatCounts)
{
    Interfaces interfaces{"fd00::1",   "127.0.0.1", "127.9.9.9", "192.0.2.1", "::1",
                          "fe80::1%2", "fe80::1%1", "128.0.0.1", "fe80::1%1", "fe80::2%1"};
    sockaddr packet{};
    packet.sa_family = AF_PACKET;
    interfaces.Add(&packet);
    interfaces.Add("192.0.2.99", 0);
    interfaces.Add("fd00::99", IFF_RUNNING);
    g_network.interfaces = [&] { return interfaces.Get(); };
    addrinfo* mine = nullptr;
    addrinfo* localhost = nullptr;
    const int descriptors = static_cast<int>(CountDescriptors());
    ASSERT_EQ(S_OK, QVGetMyAddressInformation(&mine, &localhost));
    EXPECT_EQ(descriptors, CountDescriptors());
    // The scope's name is that of the interface with its number here.
    char scope[IF_NAMESIZE] = "2";
    if_indextoname(2, scope);
    EXPECT_EQ(Show(mine), (Texts{"192.0.2.1", "128.0.0.1", "fd00::1",
                                 std::string("fe80::1%") + scope, "fe80::1%lo", "fe80::2%lo"}));
    ASSERT_NE(nullptr, localhost);
    EXPECT_EQ("fe80::1%lo", Show(localhost).front());
    EXPECT_EQ(AF_INET6, localhost->ai_family);
    EXPECT_EQ(SOCK_STREAM, localhost->ai_socktype);
    EXPECT_EQ(IPPROTO_TCP, localhost->ai_protocol);
    ASSERT_NE(nullptr, localhost->ai_next);
    EXPECT_EQ(localhost->ai_canonname, localhost->ai_next->ai_canonname);
    EXPECT_STREQ("localhost", localhost->ai_canonname);
    EXPECT_STREQ("localhost", mine->ai_canonname);
    EXPECT_NE(localhost->ai_canonname, mine->ai_canonname);
    for (const addrinfo* node = mine; node != nullptr; node = node->ai_next) {
        EXPECT_EQ(node->ai_family == AF_INET ? 16U : 28U, node->ai_addrlen);
        EXPECT_EQ(0, node->ai_flags | node->ai_socktype | node->ai_protocol);
    }
    // Found for good.
    g_network.resolver = [](const std::string&, addrinfo**) { return EAI_FAIL; };
    interfaces.Add("192.0.2.2");
    addrinfo* again[2] = {};
    EXPECT_EQ(S_OK, QVGetMyAddressInformation(&again[0], &again[1]));
    EXPECT_EQ(mine, again[0]);
    EXPECT_EQ(localhost, again[1]);
}

TEST_F(Address, ChainsLackWhatCannotBeHad)
{
    Interfaces both{"192.0.2.1", "fd00::1"};
    Interfaces grown{"192.0.2.1", "192.0.2.2", "fd00::1", "fd00::2"};
    // The size is asked for first, then the list.
    int calls = 0;
    const auto change = [&](ifaddrs* first, ifaddrs* second) {
        return [&calls, first, second] { return ++calls % 2 != 0 ? first : second; };
    };
    const auto always = [&](ifaddrs* list) { return change(list, list); };
    const struct
    {
        const char* name;
        int refusedFamily;
        std::function<ifaddrs*()> interfaces;
        bool hasResolver;
        Texts mine;
    } rows[] = {
        {"no IPv4", AF_INET, always(both.Get()), true, {"fd00::1"}},
        {"no IPv6", AF_INET6, always(both.Get()), true, {"192.0.2.1"}},
        {"no list", 0, always(nullptr), true, {}},
        {"no second list", 0, change(both.Get(), nullptr), true, {}},
        {"a longer one", 0, change(both.Get(), grown.Get()), true, {"192.0.2.1", "fd00::1"}},
        {"a shorter one", 0, change(grown.Get(), both.Get()), true, {"192.0.2.1", "fd00::1"}},
        {"no resolver", 0, always(both.Get()), false, {"192.0.2.1", "fd00::1"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        calls = 0;
        g_network.refusedFamily = row.refusedFamily;
        g_network.interfaces = row.interfaces;
        if (!row.hasResolver) {
            g_network.resolver = [](const std::string&, addrinfo**) { return EAI_AGAIN; };
        }
        addrinfo* mine = nullptr;
        addrinfo* localhost = nullptr;
        EXPECT_EQ(S_OK, QVGetMyAddressInformation(&mine, &localhost));
        EXPECT_EQ(row.mine, Show(mine));
        EXPECT_EQ(row.hasResolver, localhost != nullptr);
        EXPECT_EQ(row.hasResolver && mine != nullptr,
                  mine != nullptr && mine->ai_canonname != nullptr);
        Forget();
    }
    // A network that does not start is tried again.
    addrinfo untouched{};
    addrinfo* chains[2] = {&untouched, &untouched};
    g_network.startError = 10091;
    EXPECT_EQ(E_FAIL, QVGetMyAddressInformation(&chains[0], &chains[1]));
    EXPECT_EQ(nullptr, chains[0]);
    EXPECT_EQ(&untouched, chains[1]);
    EXPECT_EQ(0, QVIsThisMyComputerA("localhost"));
    g_network.startError = 0;
    EXPECT_EQ(S_OK, QVGetMyAddressInformation(&chains[0], &chains[1]));
    EXPECT_NE(&untouched, chains[1]);
    EXPECT_EQ(1, QVIsThisMyComputerA("localhost"));
}

TEST_F(Address, ChainsShareAddressesOfOneFamily)
{
    const struct
    {
        Texts first;
        Texts second;
        int expected;
    } rows[] = {{{"192.0.2.1"}, {"192.0.2.1"}, 1},
                {{"192.0.2.1", "fd00::1"}, {"192.0.2.2", "fd00::2", "fd00::1"}, 1},
                {{"fe80::1%1"}, {"fe80::1%4"}, 1},
                {{"192.0.2.1"}, {"::ffff:192.0.2.1"}, 0},
                {{"192.0.2.1"}, {"193.0.2.1", "192.0.2.2"}, 0},
                {{"fd00::1"}, {"fd00::1:1", "fd01::1"}, 0},
                {{}, {"fd00::1"}, 0},
                {{"fd00::1"}, {}, 0}};
    for (const auto& row : rows) {
        addrinfo* first = nullptr;
        addrinfo* second = nullptr;
        Resolve(row.first, &first);
        Resolve(row.second, &second);
        EXPECT_EQ(row.expected, QVCompareAddressInformation(first, second));
        QVfreeaddrinfo(first);
        QVfreeaddrinfo(second);
    }
    for (const int family : {AF_UNIX, AF_INET}) {
        addrinfo odd{}; // without an address
        odd.ai_family = family;
        EXPECT_EQ(0, QVCompareAddressInformation(&odd, &odd));
    }
}

TEST_F(Address, HostNamesFitOrFail)
{
    char name[8];
    char16_t wide[8];
    const struct
    {
        std::string host;
        int error;
        uint32_t size;
        QVRESULT expected;
    } rows[] = {{"abc", 0, 4, S_OK},
                {"abc", 0, 8, S_OK},
                {"abc", 0, 3, E_FAIL},
                {"abc", 0, 0, E_FAIL},
                {"abc", ENOMEM, 8, E_OUTOFMEMORY},
                {"abc", EPERM, 8, E_ACCESSDENIED},
                {std::string(1026, 'x'), 0, 8, E_FAIL}};
    for (const auto& row : rows) {
        g_network.host = row.host;
        g_network.hostError = row.error;
        std::strcpy(name, "before");
        std::char_traits<char16_t>::copy(wide, u"before", 7);
        EXPECT_EQ(row.expected, QVGetHostNameA(name, row.size)) << row.size;
        EXPECT_STREQ(row.expected == S_OK ? "abc" : "before", name);
        EXPECT_EQ(row.expected, QVGetHostName(wide, row.size)) << row.size;
        EXPECT_EQ(row.expected == S_OK ? u"abc" : u"before", std::u16string(wide));
    }
    EXPECT_EQ(1, QVIsThisMyComputerA("localhost")) << "without a host name";
    g_network = Network();
    char real[256];
    char own[256];
    gethostname(real, sizeof real);
    EXPECT_EQ(S_OK, QVGetHostNameA(own, sizeof own));
    EXPECT_STREQ(real, own);
}

TEST_F(Address, ResolverGetsLowerCaseAndLiterals)
{
    const struct
    {
        const char* name;
        const char* asked;
    } rows[] = {{"Example.ORG", "example.org"},
                {"fe80--1s4.ipv6-literal.net", "fe80::1%4"},
                {"FD00--1.IPV6-LITERAL.NET.ipv6-literal.net", "fd00::1"},
                {"my-hosts.ipv6-literal.ne", "my-hosts.ipv6-literal.ne"},
                {".ipv6-literal.net", ""},
                {"", ""}};
    std::string asked;
    g_network.resolver = [&](const std::string& name, addrinfo**) {
        asked = name;
        return EAI_AGAIN;
    };
    for (const auto& row : rows) {
        addrinfo* result = nullptr;
        EXPECT_EQ(EAI_AGAIN, QVgetaddrinfo(row.name, nullptr, nullptr, &result));
        EXPECT_EQ(row.asked, asked);
    }
    g_network = Network();
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST | AI_PASSIVE;
    hints.ai_socktype = SOCK_DGRAM;
    for (const char* const name : {"FD00--1.ipv6-literal.net", static_cast<const char*>(nullptr)}) {
        addrinfo* result = nullptr;
        ASSERT_EQ(0, QVgetaddrinfo(name, "53", &hints, &result));
        EXPECT_EQ(SOCK_DGRAM, result->ai_socktype);
        QVfreeaddrinfo(result);
    }
    QVfreeaddrinfo(nullptr);
}

TEST_F(Address, WorksOnWithoutMemory)
{
    Interfaces interfaces{"192.0.2.1", "fe80::1%1"};
    g_network.interfaces = [&] { return interfaces.Get(); };
    long before = 0;
    addrinfo untouched{};
    addrinfo* chains[2] = {};
    QVRESULT code = S_OK;
    const long failures = SweepAllocations(
        [&] {
            before = LiveBlocks();
            chains[0] = chains[1] = &untouched;
            code = QVGetMyAddressInformation(&chains[0], &chains[1]);
        },
        [&](long n, bool) {
            EXPECT_TRUE(code == S_OK || code == E_OUTOFMEMORY) << n;
            EXPECT_EQ(code == S_OK, chains[1] != &untouched) << n;
            EXPECT_NE(&untouched, chains[0]) << n;
            qv::core::g_myAddresses.End();
            EXPECT_EQ(before, LiveBlocks()) << n;
        });
    EXPECT_GE(failures, 6); // the mutex and its name, two lists, the nodes, the name
    std::int16_t answer = 0;
    SweepAllocations(
        [&] {
            before = LiveBlocks();
            answer = QVIsThisMyComputerA("192.0.2.1");
        },
        [&](long n, bool failed) {
            EXPECT_TRUE(failed || answer == 1) << n;
            // Of what failed nothing wrong is kept, but for the chains.
            EXPECT_EQ(1, QVIsThisMyComputerA("localhost")) << n;
            qv::core::g_computerNames.End();
            qv::core::g_myAddresses.End();
            EXPECT_EQ(before, LiveBlocks()) << n;
        });
    addrinfo* result = nullptr;
    const FailAllocation now(1);
    EXPECT_EQ(EAI_MEMORY, QVgetaddrinfo("localhost", nullptr, nullptr, &result));
}

} // namespace
