#include "platform/find_pattern.h"

#include <algorithm>
#include <iterator>

namespace qv::platform
{

namespace
{

WCHAR Lower(WCHAR unit)
{
    return unit >= u'A' && unit <= u'Z' ? static_cast<WCHAR>(unit + (u'a' - u'A')) : unit;
}

bool IsAlike(WCHAR wanted, WCHAR unit)
{
    return wanted == u'?' || Lower(wanted) == Lower(unit);
}

} // namespace

bool FindPattern::Set(std::u16string_view pattern)
{
    if (pattern.size() > std::size(m_text)) {
        return false;
    }
    std::copy(pattern.begin(), pattern.end(), m_text);
    m_length = pattern.size();
    m_isAll = pattern == u"*";
    return true;
}

// Goes back to the last * alone, so the time grows with the product of the lengths at most.
bool FindPattern::Matches(std::u16string_view name) const
{
    if (m_isAll) {
        return true;
    }
    constexpr std::size_t kNone = ~std::size_t{0};
    std::size_t star = kNone; // the place behind the last one
    std::size_t resume = 0;   // what it has not swallowed yet
    std::size_t at = 0;
    for (std::size_t i = 0; i < name.size();) {
        if (at < m_length && m_text[at] == u'*') {
            star = ++at;
            resume = i;
        } else if (at < m_length && IsAlike(m_text[at], name[i])) {
            ++at;
            ++i;
        } else if (star != kNone) {
            at = star;
            i = ++resume;
        } else {
            return false;
        }
    }
    return std::all_of(m_text + at, m_text + m_length, [](WCHAR unit) { return unit == u'*'; });
}

} // namespace qv::platform
