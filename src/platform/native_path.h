// A path of a caller's as the kernel takes it: UTF-8, with / between its components.
//
// Each text stands for one file name at the most, and each file name for one text: what
// FilePathFromBytes gives for a name. Any other text that would come to the same bytes is refused.
#pragma once

#include <climits>
#include <string_view>

#include "platform/types.h"

namespace qv::platform
{

// Lives on the stack and asks for no memory.
class NativePath
{
public:
    // Error 3 for an empty path; 123 for text that no file name stands for: an escaped byte that
    // needs no escape, another unpaired surrogate, a zero unit; 206 for 4096 bytes or more.
    DWORD Set(std::u16string_view path);
    // The same for a terminated text. Error 3 for null.
    DWORD Set(const WCHAR* path);

    const char* Text() const { return m_text; }
    std::string_view View() const { return {m_text, m_length}; }
    bool EndsInSeparator() const { return m_length != 0 && m_text[m_length - 1] == '/'; }

private:
    DWORD Convert(std::u16string_view path);
    DWORD Append(std::u16string_view path);

    std::size_t m_length = 0;
    char m_text[PATH_MAX];
};

// Which error says that there is no such file: 2, or 3 if there is no folder for it either.
DWORD MissingFile(const NativePath& path);

} // namespace qv::platform
