#include <qvcore6/component.h>
#include <qvcore6/result.h>
#include <qvcore6/str.h>

#include <cstring>

#include "component/guid_text.h"
#include "platform/com.h"

using namespace qv::core;

QVRESULT QVComGenerateGUID(GUID* guidOut)
{
    qv::platform::UUID made{};
    if (qv::platform::UuidCreate(&made) == qv::platform::RPC_S_UUID_NO_ADDRESS) {
        return E_FAIL;
    }
    static_assert(sizeof made == sizeof *guidOut);
    std::memcpy(guidOut, &made, sizeof made);
    return S_OK;
}

QVRESULT QVComStringFromGUID(const GUID* guid, QVWChar* text, uint32_t textUnits)
{
    GuidText narrow;
    FormatGuid(*guid, narrow);
    QVAnsiToUnicode(text, narrow.data(), textUnits);
    return S_OK;
}

QVRESULT QVComGUIDFromString(const QVWChar* text, GUID* guidOut)
{
    return ParseGuid(text, guidOut) ? S_OK : E_INVALIDARG;
}

int32_t QVComIsEqualGUID(const GUID* first, const GUID* second)
{
    return std::memcmp(first, second, sizeof(GUID)) == 0 ? 1 : 0;
}

int32_t QVComCompareGUID(const GUID* first, const GUID* second)
{
    // The node decides before the clock, and the clock before the time, of which the high part is
    // not the first.
    constexpr std::uint8_t order[] = {10, 11, 12, 13, 14, 15, 8, 9, 6, 7, 4, 5, 0, 1, 2, 3};
    std::uint8_t a[sizeof(GUID)];
    std::uint8_t b[sizeof(GUID)];
    std::memcpy(a, first, sizeof a);
    std::memcpy(b, second, sizeof b);
    for (const std::uint8_t at : order) {
        if (a[at] != b[at]) {
            return a[at] < b[at] ? -1 : 1;
        }
    }
    return 0;
}
