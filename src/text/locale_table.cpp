#include "text/locale_table.h"

#include <algorithm>
#include <iterator>

namespace qv::core
{

const char* LocaleName(std::uint32_t id)
{
    const LocaleRow* const row = std::lower_bound(
        std::begin(kLocales), std::end(kLocales), id,
        [](const LocaleRow& left, std::uint32_t right) { return left.id < right; });
    return row != std::end(kLocales) && row->id == id ? row->name : "en_US";
}

} // namespace qv::core
