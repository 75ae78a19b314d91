#include "platform/native_path.h"

#include <sys/stat.h>

#include <algorithm>

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
    // ASCII, which most paths are all of, means the same in both. In one pass: every opening of a
    // file comes through here.
    std::size_t plain = 0;
    for (; plain < path.size() && path[plain] != 0 && path[plain] <= 0x7F; ++plain) {
        m_text[plain] = path[plain] == u'\\' ? '/' : static_cast<char>(path[plain]);
    }
    m_length = plain;
    path.remove_prefix(plain);
    return path.empty() ? ERROR_SUCCESS : Append(path);
}

DWORD NativePath::Append(std::u16string_view path)
{
    char* const rest = m_text + m_length;
    const std::size_t room = sizeof m_text - 1 - m_length;
    const std::size_t added = FilePathToBytes(path, rest, room);
    if (added > room) {
        return ERROR_FILENAME_EXCED_RANGE;
    }
    if (std::find(rest, rest + added, '\0') != rest + added || !IsFilePathOf(path, {rest, added})) {
        return ERROR_INVALID_NAME;
    }
    m_length += added;
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
