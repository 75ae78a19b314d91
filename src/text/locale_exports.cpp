#include <qvcore6/locale.h>
#include <qvcore6/str.h>

#include <algorithm>
#include <cstring>
#include <iterator>

#include "platform/user_locale.h"
#include "text/locale_table.h"

namespace
{

constexpr uint32_t kUtf8 = 65001;
// "CP", the longest number of 16 bits and the terminator, whatever the number at hand needs.
constexpr int32_t kEncodingSize = 8;

} // namespace

QVRESULT QVGetDefaultLocale(QVWChar* buffer, uint32_t size)
{
    const char* const name = qv::core::LocaleName(qv::platform::GetUserDefaultLCID());
    if (std::strlen(name) >= size) {
        return QV_E_BUFFER_TOO_SMALL;
    }
    QVWChar wide[sizeof qv::core::LocaleRow::name];
    std::copy_n(name, std::strlen(name) + 1, wide); // they are ASCII
    QVStrNCpyW(buffer, wide, size);
    return S_OK;
}

QVRESULT QVGetDefaultCharEncoding(QVWChar* buffer, int32_t size)
{
    if (size < kEncodingSize) {
        return QV_E_BUFFER_TOO_SMALL;
    }
    const uint32_t page = qv::platform::GetACP();
    if (page == kUtf8) {
        QVAnsiToUnicode(buffer, "UTF-8", static_cast<uint32_t>(size));
        return S_OK;
    }
    buffer[0] = u'C';
    buffer[1] = u'P';
    QVLToStrW(static_cast<uint16_t>(page), buffer + 2, 10);
    return S_OK;
}
