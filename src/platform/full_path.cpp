#include "platform/full_path.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <new>
#include <string>
#include <string_view>

#include "platform/error.h"
#include "platform/path_text.h"

namespace qv::platform
{

namespace
{

bool IsSeparator(WCHAR unit)
{
    return unit == u'/' || unit == u'\\';
}

// Error 2 without a folder.
DWORD OwnFolder(std::u16string& folder)
{
    char bytes[PATH_MAX];
    if (getcwd(bytes, sizeof bytes) == nullptr) {
        return ErrorFromErrno(errno);
    }
    if (bytes[0] != '/') {
        return ERROR_FILE_NOT_FOUND; // outside the process's root
    }
    folder = PathFromBytes(bytes);
    std::replace(folder.begin(), folder.end(), u'\\', kEscapedBackslash);
    return ERROR_SUCCESS;
}

void AppendComponents(std::u16string& whole, std::u16string_view path)
{
    while (!path.empty()) {
        const auto end = std::find_if(path.begin(), path.end(), IsSeparator);
        const std::u16string_view component(path.begin(), end);
        path.remove_prefix(std::min(component.size() + 1, path.size()));
        if (component == u"..") {
            whole.resize(whole.empty() ? 0 : whole.rfind(u'/'));
        } else if (!component.empty() && component != u".") {
            whole += u'/';
            whole += component;
        }
    }
}

DWORD MakeWhole(std::u16string_view path, std::u16string& whole)
{
    if (path.empty()) {
        return ERROR_INVALID_NAME;
    }
    if (!IsSeparator(path.front())) {
        std::u16string folder;
        if (const DWORD error = OwnFolder(folder)) {
            return error;
        }
        AppendComponents(whole, folder);
    }
    AppendComponents(whole, path);
    if (whole.empty() || IsSeparator(path.back())) {
        whole += u'/';
    }
    return ERROR_SUCCESS;
}

} // namespace

DWORD GetFullPathNameW(const WCHAR* path, DWORD size, WCHAR* buffer, WCHAR** filePart)
{
    const KeepErrno keep;
    std::u16string whole;
    DWORD error;
    try {
        error = MakeWhole(path != nullptr ? path : u"", whole);
    } catch (const std::bad_alloc&) {
        error = ERROR_OUTOFMEMORY;
    }
    if (error != ERROR_SUCCESS) {
        SetLastError(error);
        return 0;
    }
    if (whole.size() >= size) {
        return static_cast<DWORD>(whole.size() + 1);
    }
    std::copy_n(whole.c_str(), whole.size() + 1, buffer);
    const std::size_t name = whole.rfind(u'/') + 1;
    *filePart = name < whole.size() ? buffer + name : nullptr;
    return static_cast<DWORD>(whole.size());
}

} // namespace qv::platform
