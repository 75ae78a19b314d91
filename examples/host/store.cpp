#include "store.h"

#include <qvcore6/registry.h>
#include <qvcore6/result.h>
#include <qvcore6/str.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <system_error>
#include <vector>

namespace host
{

namespace
{

// The library reads a class's path into a buffer of this many units, with the terminator.
constexpr std::size_t kPathUnits = 260;

Problem SetDefaultValue(const std::u16string& key, const std::u16string& text)
{
    const auto size = static_cast<uint32_t>((text.size() + 1) * sizeof(QVWChar));
    const QVRESULT result = QVRegistrySetValue(QV_HKEY_CLASSES, key.c_str(), u"", QV_REGTYPE_STRING,
                                               text.c_str(), size);
    switch (result) {
    case S_OK:
        return {};
    case E_ACCESSDENIED:
        return "there is no right to write the store (--state DIR names another place)";
    case E_FAIL:
        return "the store is damaged or another program's, or its disk is full";
    default:
        return "the store refused " + Narrow(key) + ": " + InWords(result);
    }
}

std::u16string LibraryKey(const GUID& clsid)
{
    return u"CLSID\\" + Widen(GuidText(clsid)) + u"\\InprocServer32";
}

} // namespace

Problem ChooseStore(const std::filesystem::path& folder)
{
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) {
        return "the folder " + folder.string() + " cannot be made: " + error.message();
    }
    if (setenv("QVCORE6_STATE_DIR", folder.c_str(), 1) != 0) {
        return "the environment is full";
    }
    return {};
}

Problem RegisterClass(const GUID& clsid, const char16_t* progId,
                      const std::filesystem::path& library)
{
    const std::u16string path = Widen(library.string());
    if (path.empty()) {
        return "the path " + library.string() + " is not UTF-8";
    }
    if (path.size() >= kPathUnits) {
        return "the path " + library.string() + " is longer than a registration can hold";
    }
    const Problem problem = SetDefaultValue(LibraryKey(clsid), path);
    return problem.empty()
               ? SetDefaultValue(std::u16string(progId) + u"\\CLSID", Widen(GuidText(clsid)))
               : problem;
}

std::filesystem::path LibraryOf(const GUID& clsid)
{
    QVWChar path[kPathUnits] = {};
    uint32_t type = 0;
    uint32_t size = sizeof path - sizeof path[0]; // what is stored may lack its terminator
    const QVRESULT result =
        QVRegistryGetValue(QV_HKEY_CLASSES, LibraryKey(clsid).c_str(), u"", &type, path, &size);
    return result >= 0 && type == QV_REGTYPE_STRING ? Narrow(path) : std::string();
}

std::string InWords(QVRESULT result)
{
    switch (result) {
    case REGDB_E_CLASSNOTREG:
        return "no such class is registered";
    case QV_E_FILE_NOT_FOUND:
        return "it is not there";
    case E_ACCESSDENIED:
        return "access is denied";
    case E_OUTOFMEMORY:
        return "memory is exhausted";
    case E_INVALIDARG:
        return "it is malformed";
    default:
        break;
    }
    char code[40];
    std::snprintf(code, sizeof code, "failure 0x%08X", static_cast<unsigned>(result));
    return code;
}

std::string GuidText(const GUID& guid)
{
    QVWChar text[QV_GUID_TEXT_UNITS];
    QVComStringFromGUID(&guid, text, QV_GUID_TEXT_UNITS);
    return Narrow(text);
}

std::u16string Widen(const std::string& text)
{
    std::vector<QVWChar> units(text.size() + 1);
    const int32_t length =
        QVUTF8ToUTF16(units.data(), text.c_str(), static_cast<int32_t>(units.size()));
    return length > 0 ? std::u16string(units.data(), static_cast<std::size_t>(length))
                      : std::u16string();
}

std::string Narrow(const std::u16string& text)
{
    std::vector<char> bytes(3 * text.size() + 1);
    const int32_t length =
        QVUTF16ToUTF8(bytes.data(), text.c_str(), static_cast<int32_t>(bytes.size()));
    return length > 0 ? std::string(bytes.data(), static_cast<std::size_t>(length)) : std::string();
}

} // namespace host
