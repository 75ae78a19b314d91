// A network and a resolver of a test's own, in place of the system's.
#pragma once

#include <gtest/gtest.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>

#include <atomic>
#include <functional>
#include <list>
#include <string>
#include <vector>

namespace qv::test
{

using Texts = std::vector<std::string>;

// What the replaced calls do; what is empty or 0 is left to the system.
struct Network
{
    std::function<int(const std::string& name, addrinfo** result)> resolver;
    std::function<ifaddrs*()> interfaces;
    std::string host;
    int hostError = 0;
    int startError = 0;
    int refusedFamily = 0;
};
extern Network g_network;
extern std::atomic<int> g_resolutions;

// The addresses as the resolver makes a chain of them, for its own free function.
int Resolve(const Texts& literals, addrinfo** result);
Texts Show(const addrinfo* chain);

// A list of interfaces.
class Interfaces
{
public:
    Interfaces() = default;
    Interfaces(std::initializer_list<const char*> addresses);
    void Add(const std::string& address, unsigned flags = IFF_UP);
    void Add(sockaddr* address, unsigned flags = IFF_UP);
    ifaddrs* Get() { return &m_entries.front(); }

private:
    std::list<ifaddrs> m_entries{ifaddrs()}; // the first has no address
    std::list<sockaddr_storage> m_addresses;
};

// Forgets between tests what is known of the network, as when the library is unloaded.
class Address : public testing::Test
{
protected:
    static void Forget();
    void TearDown() override { Forget(); }
};

} // namespace qv::test
