#include <qvcore6/address.h>
#include <qvcore6/str.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "host/my_addresses.h"

using namespace qv::platform;

namespace
{

constexpr char kLiteralSuffix[] = ".ipv6-literal.net";

bool HaveSameAddress(const addrinfo& first, const addrinfo& second)
{
    if (first.ai_family != second.ai_family || first.ai_addr == nullptr ||
        second.ai_addr == nullptr) {
        return false;
    }
    if (first.ai_family == AF_INET) {
        return reinterpret_cast<const sockaddr_in*>(first.ai_addr)->sin_addr.s_addr ==
               reinterpret_cast<const sockaddr_in*>(second.ai_addr)->sin_addr.s_addr;
    }
    return first.ai_family == AF_INET6 &&
           std::memcmp(&reinterpret_cast<const sockaddr_in6*>(first.ai_addr)->sin6_addr,
                       &reinterpret_cast<const sockaddr_in6*>(second.ai_addr)->sin6_addr,
                       sizeof(in6_addr)) == 0;
}

// "fe80--1s4.ipv6-literal.net" becomes "fe80::1%4": the name of a file share holds no colon.
void TakeLiteral(char* name)
{
    char* const suffix = QVStrStrA(name, kLiteralSuffix);
    if (suffix == nullptr) {
        return;
    }
    *suffix = '\0';
    std::replace(name, suffix, '-', ':');
    std::replace(name, suffix, 's', '%');
}

} // namespace

QVRESULT QVGetMyAddressInformation(addrinfo** myAddresses, addrinfo** localhostInfo)
{
    return qv::core::g_myAddresses.Get(myAddresses, localhostInfo);
}

std::int32_t QVCompareAddressInformation(const addrinfo* first, const addrinfo* second)
{
    for (const addrinfo* one = first; one != nullptr; one = one->ai_next) {
        for (const addrinfo* other = second; other != nullptr; other = other->ai_next) {
            if (HaveSameAddress(*one, *other)) {
                return 1;
            }
        }
    }
    return 0;
}

int QVgetaddrinfo(const char* name, const char* service, const addrinfo* hints, addrinfo** result)
{
    if (name == nullptr) {
        return qv::platform::getaddrinfo(nullptr, service, hints, result);
    }
    const std::size_t size = std::strlen(name) + 1;
    const std::unique_ptr<char[]> copy(new (std::nothrow) char[size]);
    if (copy == nullptr) {
        return EAI_MEMORY;
    }
    std::memcpy(copy.get(), name, size);
    QVStrToLowerA(copy.get());
    TakeLiteral(copy.get());
    return qv::platform::getaddrinfo(copy.get(), service, hints, result);
}

void QVfreeaddrinfo(addrinfo* info)
{
    qv::platform::freeaddrinfo(info);
}
