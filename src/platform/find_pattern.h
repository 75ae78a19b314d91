// Which names a search asks for: * stands for any units, ? for one, ASCII letters in either case.
#pragma once

#include <cstddef>
#include <string_view>

#include "platform/full_path.h"
#include "platform/types.h"

namespace qv::platform
{

class FindPattern
{
public:
    // False if it is longer than any name.
    bool Set(std::u16string_view pattern);
    bool Matches(std::u16string_view name) const;

private:
    std::size_t m_length = 0;
    bool m_isAll = false; // a single *, which most searches are
    WCHAR m_text[MAX_PATH];
};

} // namespace qv::platform
