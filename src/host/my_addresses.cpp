#include "host/my_addresses.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "frame/boundary.h"
#include "locks/lock_guard.h"

namespace qv::core
{

namespace
{

using namespace platform;

struct Free
{
    void operator()(void* block) const { std::free(block); }
};
using AddressList = std::unique_ptr<SOCKET_ADDRESS_LIST, Free>;

struct FreeResolved
{
    void operator()(addrinfo* chain) const { platform::freeaddrinfo(chain); }
};

struct CloseSocket
{
    explicit CloseSocket(SOCKET socket) : m_socket(socket) {}
    ~CloseSocket() { closesocket(m_socket); }
    CloseSocket(const CloseSocket&) = delete;
    CloseSocket& operator=(const CloseSocket&) = delete;

private:
    SOCKET m_socket;
};

// Null where there are none to be had.
AddressList QueryAddresses(int family)
{
    const SOCKET opened = platform::socket(family, SOCK_STREAM, IPPROTO_TCP);
    if (opened == INVALID_SOCKET) {
        return nullptr;
    }
    const CloseSocket closing(opened);
    const auto query = [&](void* list, DWORD room, DWORD* size) {
        WSAIoctl(opened, SIO_ADDRESS_LIST_QUERY, nullptr, 0, list, room, size, nullptr, nullptr);
    };
    DWORD size = 0;
    query(nullptr, 0, &size);
    if (size < sizeof(SOCKET_ADDRESS_LIST)) {
        return nullptr;
    }
    // Zeroed, so that a second query that fails leaves an empty list.
    AddressList list(static_cast<SOCKET_ADDRESS_LIST*>(std::calloc(1, size)));
    if (list != nullptr) {
        query(list.get(), size, &size);
    }
    return list;
}

int CountOf(const AddressList& list)
{
    return list != nullptr ? list->iAddressCount : 0;
}

const sockaddr_in6& ToIpv6(const sockaddr& address)
{
    return reinterpret_cast<const sockaddr_in6&>(address);
}

// fe80::1%1, which an interface may have beside ::1.
constexpr sockaddr_in6 MakeLocalAddress()
{
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_addr.s6_addr[0] = 0xFE;
    address.sin6_addr.s6_addr[1] = 0x80;
    address.sin6_addr.s6_addr[15] = 0x01;
    address.sin6_scope_id = 1;
    return address;
}

} // namespace

class FoundAddresses
{
public:
    FoundAddresses();

    addrinfo* Mine() { return m_nodes.empty() ? nullptr : m_nodes.data(); }
    addrinfo* Localhost() { return m_localhostInfo; }

private:
    void Append(sockaddr* address, std::size_t length);
    void TakeIpv6(sockaddr* address);
    bool IsLocalAddress(const sockaddr_in6& address) const;
    void NameFirst();

    std::unique_ptr<addrinfo, FreeResolved> m_resolved;
    AddressList m_ipv4AddressList; // the nodes point into both
    AddressList m_ipv6AddressList;
    std::vector<addrinfo> m_nodes;
    std::unique_ptr<char, Free> m_canonicalName; // of the first node
    addrinfo* m_localhostInfo = nullptr;
    sockaddr_in6 m_localAddress = MakeLocalAddress();
    addrinfo m_linkLocalInfo{0,
                             AF_INET6,
                             SOCK_STREAM,
                             IPPROTO_TCP,
                             sizeof m_localAddress,
                             reinterpret_cast<sockaddr*>(&m_localAddress),
                             nullptr,
                             nullptr};
};

// Throws if memory runs out: a list that is cut short would give wrong answers for ever.
FoundAddresses::FoundAddresses()
{
    addrinfo hints{};
    hints.ai_flags = AI_CANONNAME;
    addrinfo* resolved = nullptr;
    if (platform::getaddrinfo("localhost", nullptr, &hints, &resolved) == 0) {
        m_resolved.reset(resolved);
        m_localhostInfo = resolved;
        m_linkLocalInfo.ai_canonname = resolved->ai_canonname;
    }
    m_ipv4AddressList = QueryAddresses(AF_INET);
    m_ipv6AddressList = QueryAddresses(AF_INET6);
    const int ipv4Count = CountOf(m_ipv4AddressList);
    const int ipv6Count = CountOf(m_ipv6AddressList);
    m_nodes.reserve(static_cast<std::size_t>(ipv4Count) + static_cast<std::size_t>(ipv6Count));
    for (int i = 0; i < ipv4Count; ++i) {
        const SOCKET_ADDRESS* const rows = m_ipv4AddressList->Address;
        Append(rows[i].lpSockaddr, sizeof(sockaddr_in));
    }
    for (int i = 0; i < ipv6Count; ++i) {
        const SOCKET_ADDRESS* const rows = m_ipv6AddressList->Address;
        TakeIpv6(rows[i].lpSockaddr);
    }
    NameFirst();
}

// There is room for all.
void FoundAddresses::Append(sockaddr* address, std::size_t length)
{
    addrinfo& node = m_nodes.emplace_back();
    node.ai_family = address->sa_family;
    node.ai_addrlen = static_cast<socklen_t>(length);
    node.ai_addr = address;
    if (m_nodes.size() > 1) {
        m_nodes[m_nodes.size() - 2].ai_next = &node;
    }
}

void FoundAddresses::TakeIpv6(sockaddr* address)
{
    const sockaddr_in6& ipv6 = ToIpv6(*address);
    if (IN6_IS_ADDR_LOOPBACK(&ipv6.sin6_addr)) {
        return;
    }
    if (IsLocalAddress(ipv6) && m_localhostInfo != &m_linkLocalInfo) {
        m_linkLocalInfo.ai_next = m_localhostInfo;
        m_localhostInfo = &m_linkLocalInfo;
        return;
    }
    Append(address, sizeof(sockaddr_in6));
}

bool FoundAddresses::IsLocalAddress(const sockaddr_in6& address) const
{
    return IN6_ARE_ADDR_EQUAL(&address.sin6_addr, &m_localAddress.sin6_addr) &&
           address.sin6_scope_id == m_localAddress.sin6_scope_id;
}

void FoundAddresses::NameFirst()
{
    const char* const name = m_localhostInfo != nullptr ? m_localhostInfo->ai_canonname : nullptr;
    if (name == nullptr || m_nodes.empty()) {
        return;
    }
    const std::size_t size = std::strlen(name) + 1;
    m_canonicalName.reset(static_cast<char*>(std::calloc(size, 1)));
    if (m_canonicalName == nullptr) {
        throw std::bad_alloc();
    }
    std::memcpy(m_canonicalName.get(), name, size);
    m_nodes.front().ai_canonname = m_canonicalName.get();
}

QVRESULT MyAddresses::Get(addrinfo** myAddresses, addrinfo** localhostInfo)
{
    *myAddresses = nullptr;
    return Boundary([&] {
        const LockGuard hold(m_mutex.Get());
        FoundAddresses* found = m_found.load(std::memory_order_relaxed);
        if (found == nullptr) {
            WSADATA data;
            if (WSAStartup(kWinsockVersion, &data) != 0) {
                return E_FAIL;
            }
            found = new FoundAddresses;
            m_found.store(found, std::memory_order_release);
        }
        *myAddresses = found->Mine();
        *localhostInfo = found->Localhost();
        return S_OK;
    });
}

// No thread is inside, and none comes.
void MyAddresses::End()
{
    delete m_found.exchange(nullptr);
    m_mutex.Destroy();
}

constinit MyAddresses g_myAddresses;

} // namespace qv::core
