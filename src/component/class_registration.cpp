#include "component/class_registration.h"

#include <qvcore6/registry.h>
#include <qvcore6/str.h>

#include <algorithm>
#include <string_view>

namespace qv::core
{

namespace
{

constexpr std::u16string_view kClassKey = u"CLSID\\";
constexpr std::u16string_view kLibraryKey = u"\\InprocServer32";
constexpr std::u16string_view kProgIDClassKey = u"\\CLSID";

constexpr std::size_t kClassKeyUnits = 256;
constexpr std::size_t kProgIDKeyUnits = 260;

// The default value of a key as text. The value may be of any type, without a terminator, or cut
// inside a unit; the text is terminated behind the last whole unit. The last unit of the array is
// not offered to the store.
template <std::size_t Units>
QVRESULT ReadDefaultText(const QVWChar* key, std::array<QVWChar, Units>& text)
{
    constexpr std::uint32_t capacity = (Units - 1) * sizeof(QVWChar);
    std::uint32_t type = 0;
    std::uint32_t size = capacity;
    const QVRESULT result =
        QVRegistryGetValue(QV_HKEY_CLASSES, key, u"", &type, text.data(), &size);
    text[std::min(size, capacity) / sizeof(QVWChar)] = 0;
    return result;
}

QVWChar* Append(QVWChar* end, std::u16string_view text)
{
    return std::copy(text.begin(), text.end(), end);
}

} // namespace

QVRESULT ReadLibraryPath(const GUID& clsid, LibraryPath& path)
{
    std::array<QVWChar, QV_GUID_TEXT_UNITS> text;
    const QVRESULT formatted = QVComStringFromGUID(&clsid, text.data(), QV_GUID_TEXT_UNITS);
    if (formatted < 0) {
        return formatted;
    }
    std::array<QVWChar, kClassKeyUnits> key;
    QVWChar* end = Append(key.data(), kClassKey);
    end = Append(end, {text.data(), QV_GUID_TEXT_UNITS - 1});
    *Append(end, kLibraryKey) = 0;
    return ReadDefaultText(key.data(), path);
}

QVRESULT ReadClassOfProgID(const QVWChar* progId, GUID* clsidOut)
{
    const std::size_t length = QVStrLenW(progId);
    std::array<QVWChar, kProgIDKeyUnits> key;
    // Refused rather than cut: a cut name could be the name of another class.
    if (length > key.size() - kProgIDClassKey.size() - 1) {
        return E_INVALIDARG;
    }
    *Append(Append(key.data(), {progId, length}), kProgIDClassKey) = 0;
    std::array<QVWChar, QV_GUID_TEXT_UNITS + 1> text;
    const QVRESULT result = ReadDefaultText(key.data(), text);
    if (result < 0) {
        return result == QV_E_FILE_NOT_FOUND ? REGDB_E_CLASSNOTREG : result;
    }
    return QVComGUIDFromString(text.data(), clsidOut);
}

} // namespace qv::core
