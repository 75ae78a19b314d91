#include "platform/network.h"

#include <ifaddrs.h>
#include <net/if.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <memory>

#include "platform/error.h"
#include "platform/no_cancellation.h"

namespace qv::platform
{

namespace
{

struct FreeInterfaces
{
    void operator()(ifaddrs* list) const { freeifaddrs(list); }
};
using Interfaces = std::unique_ptr<ifaddrs, FreeInterfaces>;

int Fail(DWORD error)
{
    SetLastError(error);
    return -1;
}

int FailFromErrno()
{
    return Fail(errno == EAFNOSUPPORT ? WSAEAFNOSUPPORT : ErrorFromErrno(errno));
}

bool IsLoopback(const sockaddr& address)
{
    return (ntohl(reinterpret_cast<const sockaddr_in&>(address).sin_addr.s_addr) >> 24) == 127;
}

// IPv6's loopback address counts: it is the callers who pass it over.
bool Counts(const ifaddrs& entry, int family)
{
    return entry.ifa_addr != nullptr && entry.ifa_addr->sa_family == family &&
           (entry.ifa_flags & IFF_UP) != 0 && (family != AF_INET || !IsLoopback(*entry.ifa_addr));
}

struct Sizes
{
    explicit Sizes(int family)
        : address(family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6))
    {}

    // Even an empty list has a size: callers take 0 for none.
    static constexpr std::size_t kEmpty = sizeof(SOCKET_ADDRESS_LIST);
    static constexpr std::size_t kHead = offsetof(SOCKET_ADDRESS_LIST, Address);

    std::size_t Entry() const { return sizeof(SOCKET_ADDRESS) + address; }
    std::size_t Whole(std::size_t count) const { return std::max(kEmpty, kHead + count * Entry()); }
    std::size_t Room(std::size_t size) const
    {
        return size < kEmpty ? 0 : (size - kHead) / Entry();
    }

    std::size_t address; // bytes, a multiple of its alignment
};

// As many as there is room for: the list may have grown since its size was asked for.
void Fill(void* out, std::size_t room, const ifaddrs* entry, int family)
{
    const Sizes sizes(family);
    auto* const list = static_cast<SOCKET_ADDRESS_LIST*>(out);
    std::byte* bytes = static_cast<std::byte*>(out) + Sizes::kHead + room * sizeof(SOCKET_ADDRESS);
    SOCKET_ADDRESS* const rows = list->Address;
    std::size_t count = 0;
    for (; entry != nullptr && count < room; entry = entry->ifa_next) {
        if (Counts(*entry, family)) {
            std::memcpy(bytes, entry->ifa_addr, sizes.address);
            rows[count] = {reinterpret_cast<sockaddr*>(bytes), static_cast<int>(sizes.address)};
            bytes += sizes.address;
            ++count;
        }
    }
    list->iAddressCount = static_cast<int>(count);
}

} // namespace

int gethostname(char* name, int size)
{
    const KeepErrno keep;
    // The C library leaves open whether a name that was cut has an end.
    if (size > 0 && ::gethostname(name, static_cast<std::size_t>(size)) == 0 &&
        std::memchr(name, 0, static_cast<std::size_t>(size)) != nullptr) {
        return 0;
    }
    return size <= 0 || errno == ENAMETOOLONG || errno == EINVAL ? Fail(WSAEFAULT)
                                                                 : FailFromErrno();
}

int getaddrinfo(const char* name, const char* service, const addrinfo* hints, addrinfo** result)
{
    const NoCancellation whole;
    const int before = errno;
    const int error = ::getaddrinfo(name, service, hints, result);
    if (error != EAI_SYSTEM) {
        errno = before;
    }
    return error;
}

void freeaddrinfo(addrinfo* info)
{
    if (info != nullptr) {
        ::freeaddrinfo(info);
    }
}

SOCKET socket(int family, int type, int protocol)
{
    const KeepErrno keep;
    const int made = ::socket(family, type | SOCK_CLOEXEC, protocol);
    return made >= 0 ? made : FailFromErrno();
}

extern "C"
{
    int WSAStartup(std::uint16_t version, WSADATA* data)
    {
        data->wVersion = version;
        data->wHighVersion = version;
        return 0;
    }

    int WSAGetLastError()
    {
        return static_cast<int>(GetLastError());
    }

    int closesocket(SOCKET socket)
    {
        const KeepErrno keep;
        const NoCancellation whole;
        // Interrupted, it is closed all the same.
        return close(socket) == 0 || errno == EINTR ? 0 : FailFromErrno();
    }

    int WSAIoctl(SOCKET socket, DWORD code, void* /*in*/, DWORD /*inSize*/, void* out,
                 DWORD outSize, DWORD* bytes, void* /*overlapped*/, void* /*completion*/)
    {
        const KeepErrno keep;
        const NoCancellation whole;
        if (code != SIO_ADDRESS_LIST_QUERY) {
            return Fail(WSAEOPNOTSUPP);
        }
        int family = 0;
        socklen_t length = sizeof family;
        ifaddrs* taken = nullptr;
        if (getsockopt(socket, SOL_SOCKET, SO_DOMAIN, &family, &length) != 0 ||
            getifaddrs(&taken) != 0) {
            return FailFromErrno();
        }
        const Interfaces interfaces(taken);
        if (family != AF_INET && family != AF_INET6) {
            return Fail(WSAEAFNOSUPPORT);
        }
        std::size_t count = 0;
        for (const ifaddrs* entry = taken; entry != nullptr; entry = entry->ifa_next) {
            count += Counts(*entry, family) ? 1 : 0;
        }
        const Sizes sizes(family);
        const std::size_t needed = sizes.Whole(count);
        if (outSize >= Sizes::kEmpty) {
            Fill(out, std::min(count, sizes.Room(outSize)), taken, family);
        }
        *bytes = static_cast<DWORD>(needed);
        return outSize >= needed ? 0 : Fail(WSAEFAULT);
    }
}

} // namespace qv::platform
