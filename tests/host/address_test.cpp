// Which addresses and names are this computer's, on networks and resolvers of the tests' own.
#include <qvcore6/address.h>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <list>
#include <string>
#include <thread>
#include <vector>

#include "host/computer_names.h"
#include "host/my_addresses.h"
#include "support/alloc_faults.h"
#include "support/child_process.h"

using namespace qv::test;

namespace
{

using Texts = std::vector<std::string>;

// What the replaced calls do; a null or 0 leaves them to the system.
struct Network
{
    std::function<int(const std::string& name, addrinfo** result)> resolver;
    std::function<ifaddrs*()> interfaces;
    std::string host;
    int hostError = 0;
    int startError = 0;
    int refusedFamily = 0;
};
Network g_network;
std::atomic<int> g_resolutions{0};

} // namespace

extern "C"
{
    decltype(getaddrinfo) __real_getaddrinfo;
    decltype(getifaddrs) __real_getifaddrs;
    decltype(freeifaddrs) __real_freeifaddrs;
    decltype(gethostname) __real_gethostname;
    decltype(socket) __real_socket;

    int __wrap_getaddrinfo(const char* name, const char* service, const addrinfo* hints,
                           addrinfo** result)
    {
        ++g_resolutions;
        return g_network.resolver != nullptr ? g_network.resolver(name, result)
                                             : __real_getaddrinfo(name, service, hints, result);
    }
    int __wrap_getifaddrs(ifaddrs** list)
    {
        if (g_network.interfaces == nullptr) {
            return __real_getifaddrs(list);
        }
        *list = g_network.interfaces();
        errno = ENOMEM;
        return *list != nullptr ? 0 : -1;
    }
    void __wrap_freeifaddrs(ifaddrs* list)
    {
        if (g_network.interfaces == nullptr) {
            __real_freeifaddrs(list);
        }
    }
    int __wrap_gethostname(char* name, std::size_t size)
    {
        if (g_network.hostError != 0) {
            errno = g_network.hostError;
            return -1;
        }
        if (g_network.host.empty()) {
            return __real_gethostname(name, size);
        }
        strncpy(name, g_network.host.c_str(), size);
        return 0;
    }
    int __wrap_socket(int family, int type, int protocol)
    {
        if (family == g_network.refusedFamily) {
            errno = EAFNOSUPPORT;
            return -1;
        }
        return __real_socket(family, type, protocol);
    }
    int __wrap_WSAStartup(std::uint16_t /*version*/, void* /*data*/)
    {
        return g_network.startError;
    }
}

namespace
{

class Address : public testing::Test
{
protected:
    // What is known of the network goes, as when the library is unloaded.
    void TearDown() override
    {
        g_network = Network();
        qv::core::g_computerNames.End();
        qv::core::g_myAddresses.End();
    }
};

std::string Show(const addrinfo& node)
{
    char text[NI_MAXHOST];
    EXPECT_NE(nullptr, node.ai_addr);
    const int failed =
        getnameinfo(node.ai_addr, node.ai_addrlen, text, sizeof text, nullptr, 0, NI_NUMERICHOST);
    return failed == 0 ? text : gai_strerror(failed);
}

Texts Show(const addrinfo* chain)
{
    Texts texts;
    for (; chain != nullptr; chain = chain->ai_next) {
        texts.push_back(Show(*chain));
    }
    return texts;
}

// As the resolver makes a chain of literals, and so that its free function takes it.
int Resolve(const Texts& literals, addrinfo** result)
{
    addrinfo** end = result;
    for (const std::string& literal : literals) {
        addrinfo hints{};
        hints.ai_socktype = SOCK_STREAM;
        hints.ai_flags = AI_NUMERICHOST;
        EXPECT_EQ(0, __real_getaddrinfo(literal.c_str(), nullptr, &hints, end)) << literal;
        end = &(*end)->ai_next;
    }
    return literals.empty() ? EAI_NONAME : 0;
}

// A list of interfaces of a test's own.
class Interfaces
{
public:
    void Add(const std::string& address, unsigned flags = IFF_UP)
    {
        addrinfo* found = nullptr;
        Resolve({address}, &found);
        auto& storage = m_addresses.emplace_back();
        std::memcpy(&storage, found->ai_addr, found->ai_addrlen);
        freeaddrinfo(found);
        Add(reinterpret_cast<sockaddr*>(&storage), flags);
    }
    void Add(sockaddr* address, unsigned flags = IFF_UP)
    {
        ifaddrs& entry = m_entries.emplace_back();
        entry.ifa_addr = address;
        entry.ifa_flags = flags;
        if (m_entries.size() > 1) {
            std::prev(m_entries.end(), 2)->ifa_next = &entry;
        }
    }
    ifaddrs* Get() { return m_entries.empty() ? &m_none : &m_entries.front(); }

private:
    ifaddrs m_none{};
    std::list<ifaddrs> m_entries;
    std::list<sockaddr_storage> m_addresses;
};

TEST_F(Address, ChainsHoldWhatCounts)
{
    Interfaces interfaces;
    interfaces.Add(nullptr);
    sockaddr packet{};
    packet.sa_family = AF_PACKET;
    interfaces.Add(&packet);
    for (const char* const address :
         {"fd00::1", "127.0.0.1", "127.9.9.9", "192.0.2.1", "::1", "fe80::1%2", "fe80::1%1",
          "128.0.0.1", "fe80::1%1", "fe80::2%1"}) {
        interfaces.Add(address);
    }
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
    EXPECT_EQ("fe80::1%lo", Show(*localhost));
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
    Interfaces both;
    both.Add("192.0.2.1");
    both.Add("fd00::1");
    Interfaces grown; // since the size was asked for
    for (const char* const address : {"192.0.2.1", "192.0.2.2", "fd00::1", "fd00::2"}) {
        grown.Add(address);
    }
    int calls = 0;
    const struct
    {
        const char* name;
        int refusedFamily;
        std::function<ifaddrs*()> interfaces;
        bool hasResolver;
        Texts mine;
    } rows[] = {
        {"no IPv4", AF_INET, [&] { return both.Get(); }, true, {"fd00::1"}},
        {"no IPv6", AF_INET6, [&] { return both.Get(); }, true, {"192.0.2.1"}},
        {"no list", 0, [] { return nullptr; }, true, {}},
        {"no second list", 0, [&] { return ++calls % 2 != 0 ? both.Get() : nullptr; }, true, {}},
        {"a longer second list",
         0,
         [&] { return (++calls % 2 != 0 ? both : grown).Get(); },
         true,
         {"192.0.2.1", "fd00::1"}},
        {"a shorter second list",
         0,
         [&] { return (++calls % 2 != 0 ? grown : both).Get(); },
         true,
         {"192.0.2.1", "fd00::1"}},
        {"no resolver", 0, [&] { return both.Get(); }, false, {"192.0.2.1", "fd00::1"}},
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
        TearDown();
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
    sockaddr other{};
    other.sa_family = AF_UNIX;
    addrinfo odd{};
    odd.ai_family = AF_UNIX;
    odd.ai_addr = &other;
    EXPECT_EQ(0, QVCompareAddressInformation(&odd, &odd));
    odd.ai_family = AF_INET;
    odd.ai_addr = nullptr;
    EXPECT_EQ(0, QVCompareAddressInformation(&odd, &odd));
}

TEST_F(Address, NamesAreResolvedOnce)
{
    Interfaces interfaces;
    interfaces.Add("192.0.2.1");
    interfaces.Add("fd00::1");
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
    Interfaces interfaces;
    interfaces.Add("192.0.2.1");
    interfaces.Add("fe80::1%1");
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

// A resolver that takes its time holds up who asks for names, but neither a fork nor its child.
TEST_F(Address, ForksDoNotWaitForTheResolver)
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

TEST_F(Address, BearsThreadsAndForks)
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

TEST_F(Address, AreThoseOfTheKernel)
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
        EXPECT_EQ("fe80::1%lo", Show(*localhost));
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
