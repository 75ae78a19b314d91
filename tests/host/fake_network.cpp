#include "host/fake_network.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <iterator>

#include "host/computer_names.h"
#include "host/my_addresses.h"

using namespace qv::test;

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

namespace qv::test
{

Network g_network;
std::atomic<int> g_resolutions{0};

int Resolve(const Texts& literals, addrinfo** result)
{
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICHOST;
    for (const std::string& literal : literals) {
        EXPECT_EQ(0, __real_getaddrinfo(literal.c_str(), nullptr, &hints, result)) << literal;
        result = &(*result)->ai_next;
    }
    return literals.empty() ? EAI_NONAME : 0;
}

Texts Show(const addrinfo* chain)
{
    Texts texts;
    for (; chain != nullptr; chain = chain->ai_next) {
        char text[NI_MAXHOST] = "";
        EXPECT_EQ(0, getnameinfo(chain->ai_addr, chain->ai_addrlen, text, sizeof text, nullptr, 0,
                                 NI_NUMERICHOST));
        texts.emplace_back(text);
    }
    return texts;
}

Interfaces::Interfaces(std::initializer_list<const char*> addresses)
{
    for (const char* const address : addresses) {
        Add(address);
    }
}

void Interfaces::Add(const std::string& address, unsigned flags)
{
    addrinfo* found = nullptr;
    Resolve({address}, &found);
    auto& storage = m_addresses.emplace_back();
    std::memcpy(&storage, found->ai_addr, found->ai_addrlen);
    freeaddrinfo(found);
    Add(reinterpret_cast<sockaddr*>(&storage), flags);
}

void Interfaces::Add(sockaddr* address, unsigned flags)
{
    ifaddrs& last = m_entries.back();
    ifaddrs& entry = m_entries.emplace_back();
    entry.ifa_addr = address;
    entry.ifa_flags = flags;
    last.ifa_next = &entry;
}

void Address::Forget()
{
    g_network = Network();
    core::g_computerNames.End();
    core::g_myAddresses.End();
}

} // namespace qv::test
