#include "platform/native_path.h"

#include <sys/stat.h>

#include <algorithm>
#include <iterator>

#include "platform/path_text.h"

namespace qv::platform
{

DWORD NativePath::Set(std::u16string_view path)
{
    const DWORD error = Convert(path);
    if (error != ERROR_SUCCESS) {
        m_length = 0;
    }
    m_text[m_length] = '\0';
    return error;
}

DWORD NativePath::Convert(std::u16string_view path)
{
    if (path.empty()) {
        return ERROR_PATH_NOT_FOUND;
    }
    if (path.size() >= sizeof m_text) {
        return ERROR_FILENAME_EXCED_RANGE;
    }
    // ASCII, which most paths are all of, means the same in both.
    const auto beyond =
        std::find_if(path.begin(), path.end(), [](WCHAR unit) { return unit > 0x7F; });
    char* const rest = std::transform(path.begin(), beyond, m_text,
                                      [](WCHAR unit) { return static_cast<char>(unit); });
    path.remove_prefix(static_cast<std::size_t>(rest - m_text));
    const auto room = static_cast<std::size_t>(std::end(m_text) - 1 - rest);
    const std::size_t added = PathToBytes(path, rest, room);
    if (added > room) {
        return ERROR_FILENAME_EXCED_RANGE;
    }
    char* const end = rest + added;
    if (std::find(m_text, end, '\0') != end || !IsPathOf(path, {rest, added})) {
        return ERROR_INVALID_NAME;
    }
    std::replace(m_text, end, '\\', '/');
    m_length = static_cast<std::size_t>(end - m_text);
    return ERROR_SUCCESS;
}

DWORD NativePath::Set(const WCHAR* path)
{
    return Set(path != nullptr ? std::u16string_view(path) : std::u16string_view());
}

DWORD MissingFile(const NativePath& path)
{
    std::string_view folder = path.View();
    while (!folder.empty() && folder.back() == '/') {
        folder.remove_suffix(1);
    }
    folder = folder.substr(0, folder.rfind('/') + 1); // all of it goes when there is none
    char text[PATH_MAX] = ".";
    folder.copy(text, folder.size());
    struct stat found = {};
    return stat(text, &found) == 0 ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND;
}

} // namespace qv::platform
