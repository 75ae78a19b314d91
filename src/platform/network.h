// The network's names and addresses.
#pragma once

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "platform/types.h"

namespace qv::platform
{

inline constexpr std::uint16_t kWinsockVersion = 0x202; // 2.2

using SOCKET = std::int32_t;
inline constexpr SOCKET INVALID_SOCKET = -1;

inline constexpr DWORD SIO_ADDRESS_LIST_QUERY = 0x48000016;

inline constexpr DWORD WSAEFAULT = 10014;
inline constexpr DWORD WSAEOPNOTSUPP = 10045;
inline constexpr DWORD WSAEAFNOSUPPORT = 10047;
inline constexpr DWORD WSANOTINITIALISED = 10093;

struct WSADATA
{
    std::uint16_t wVersion;
    std::uint16_t wHighVersion;
};

struct SOCKET_ADDRESS
{
    sockaddr* lpSockaddr;
    int iSockaddrLength; // bytes
};

struct SOCKET_ADDRESS_LIST
{
    int iAddressCount;
    SOCKET_ADDRESS Address[1]; // as many as the count says
};

// These four have the names of the C library's, so no C linkage: tests replace the C library's.

// 0; -1 with WSAEFAULT if the name with its terminator does not fit, or another error.
int gethostname(char* name, int size);
// As the C library's, with its errno for EAI_SYSTEM.
int getaddrinfo(const char* name, const char* service, const addrinfo* hints, addrinfo** result);
void freeaddrinfo(addrinfo* info);
// INVALID_SOCKET with WSAEAFNOSUPPORT if the kernel lacks the family, or with another error.
SOCKET socket(int family, int type, int protocol);

extern "C"
{
    // 0.
    int WSAStartup(std::uint16_t version, WSADATA* data);
    // The last error.
    int WSAGetLastError();
    int closesocket(SOCKET socket);
    // For SIO_ADDRESS_LIST_QUERY alone, else WSAEOPNOTSUPP: the addresses of the socket's family on
    // interfaces that are up, without 127.0.0.0/8, in the kernel's order, as one block of the list
    // and the addresses that it points to. 0, and the block's size in *bytes. If out is too small,
    // -1 with WSAEFAULT and the needed size: out then holds a list of what fits.
    int WSAIoctl(SOCKET socket, DWORD code, void* in, DWORD inSize, void* out, DWORD outSize,
                 DWORD* bytes, void* overlapped, void* completion);
}

} // namespace qv::platform
