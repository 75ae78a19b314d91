#include "surroundings.h"

#include <qvcore6/address.h>
#include <qvcore6/locale.h>
#include <qvcore6/sysinfo.h>
#include <qvcore6/time.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "report.h"
#include "store.h"

namespace host
{

namespace
{

constexpr uint32_t kRoom = 256; // units; every one of these names is shorter

template <class Get> std::string Name(Get get)
{
    QVWChar name[kRoom];
    const QVRESULT result = get(name);
    return result >= 0 ? Shown(Narrow(name)) : "unknown: " + InWords(result);
}

// "CET, UTC+01:00"
std::string Zone()
{
    QVTimeZone zone;
    const QVRESULT result = QVTimeGetZone(&zone);
    if (result < 0) {
        return "unknown: " + InWords(result);
    }
    const QVWChar* const name = zone.isDaylight != 0 ? zone.daylightName : zone.standardName;
    const int minutes = std::abs(zone.biasSeconds) / 60;
    char offset[32];
    std::snprintf(offset, sizeof offset, "UTC%c%02d:%02d", zone.biasSeconds > 0 ? '-' : '+',
                  minutes / 60, minutes % 60);
    return Shown(Narrow(name)) + ", " + offset;
}

} // namespace

void PrintSurroundings()
{
    std::puts("Where and as whom");
    PrintRow(2, "computer", Name([](QVWChar* name) { return QVGetHostName(name, kRoom); }));
    PrintRow(2, "user", Name([](QVWChar* name) { return QVGetUserName(name, kRoom); }));
    PrintRow(2, "locale", Name([](QVWChar* name) { return QVGetDefaultLocale(name, kRoom); }));
    PrintRow(2, "charset", Name([](QVWChar* name) {
                 return QVGetDefaultCharEncoding(name, static_cast<int32_t>(kRoom));
             }));
    PrintRow(2, "zone", Zone());
    std::puts("");
}

} // namespace host
