#include <qvcore6/address.h>
#include <qvcore6/str.h>

#include <cstring>

#include "platform/network.h"

using namespace qv::platform;

namespace
{

constexpr int kRoom = 1026; // bytes

// True if it was told that the network is to be started first, and it has been.
bool StartIfAsked()
{
    WSADATA data;
    return static_cast<DWORD>(WSAGetLastError()) == WSANOTINITIALISED &&
           WSAStartup(kWinsockVersion, &data) == 0;
}

QVRESULT ReadHostName(char (&name)[kRoom])
{
    int failed = qv::platform::gethostname(name, kRoom);
    if (failed != 0 && StartIfAsked()) {
        failed = qv::platform::gethostname(name, kRoom);
    }
    name[kRoom - 1] = '\0';
    return failed == 0 ? S_OK : QVResultFromNative(static_cast<DWORD>(WSAGetLastError()));
}

} // namespace

QVRESULT QVGetHostNameA(char* buffer, std::uint32_t size)
{
    char name[kRoom];
    const QVRESULT result = ReadHostName(name);
    if (result < 0) {
        return result;
    }
    const std::size_t needed = std::strlen(name) + 1;
    if (size < needed) {
        return E_FAIL;
    }
    std::memcpy(buffer, name, needed);
    return S_OK;
}

QVRESULT QVGetHostName(QVWChar* buffer, std::uint32_t size)
{
    char name[kRoom];
    const QVRESULT result = QVGetHostNameA(name, kRoom);
    if (result < 0) {
        return result;
    }
    if (size < std::strlen(name) + 1) {
        return E_FAIL;
    }
    QVAnsiToUnicode(buffer, name, size);
    return S_OK;
}
