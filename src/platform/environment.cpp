#include "platform/environment.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <string_view>

#include "platform/error.h"
#include "platform/path_text.h"
#include "platform/registry_names.h"

namespace qv::platform
{

namespace
{

constexpr WCHAR kMark = u'%';

// Null if there is none.
const char* FindVariable(std::u16string_view name)
{
    if (const char* const exact = std::getenv(PathToBytes(name).c_str())) {
        return exact;
    }
    for (char** variable = environ; variable != nullptr && *variable != nullptr; ++variable) {
        const char* const end = std::strchr(*variable, '=');
        if (end == nullptr) {
            continue;
        }
        const std::string_view bytes(*variable, static_cast<std::size_t>(end - *variable));
        if (SameName(PathFromBytes(bytes), name)) {
            return end + 1;
        }
    }
    return nullptr;
}

std::u16string Expand(std::u16string_view text)
{
    std::u16string result;
    while (!text.empty()) {
        const std::size_t begin = text.find(kMark);
        const std::size_t end =
            begin == std::u16string_view::npos ? begin : text.find(kMark, begin + 1);
        if (end == std::u16string_view::npos) {
            break;
        }
        const std::u16string_view name = text.substr(begin + 1, end - begin - 1);
        const char* const value = name.empty() ? nullptr : FindVariable(name);
        if (value != nullptr) {
            result += text.substr(0, begin);
            result += PathFromBytes(value);
            text.remove_prefix(end + 1);
        } else {
            // The mark at its end may begin a reference.
            result += text.substr(0, end);
            text.remove_prefix(end);
        }
    }
    result += text;
    return result;
}

} // namespace

DWORD ExpandEnvironmentStringsW(const WCHAR* text, WCHAR* expanded, DWORD size)
{
    const KeepErrno keep;
    std::u16string result;
    try {
        result = Expand(text);
    } catch (const std::bad_alloc&) {
        SetLastError(ERROR_OUTOFMEMORY);
        return 0;
    }
    if (result.size() >= INT32_MAX) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const auto needed = static_cast<DWORD>(result.size() + 1);
    if (needed <= size) {
        std::memcpy(expanded, result.c_str(), needed * sizeof(WCHAR));
    }
    return needed;
}

} // namespace qv::platform
