#include "process/environment_block.h"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <vector>

#include "platform/collation.h"

namespace qv::core
{

EnvironmentBlock::EnvironmentBlock(const QVWChar* const* strings)
{
    if (strings == nullptr) {
        return;
    }
    std::vector<std::u16string_view> sorted;
    std::size_t size = 1;
    for (; *strings != nullptr; ++strings) {
        const std::u16string_view string(*strings);
        // An empty one would end the block, and take along what sorts behind it.
        if (!string.empty()) {
            sorted.push_back(string);
            size += string.size() + 1;
        }
    }
    // The order may change under way, with the locale: this sort bears it.
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](std::u16string_view first, std::u16string_view second) {
                         return platform::_wcsicoll(first.data(), second.data()) < 0;
                     });
    m_block = std::make_unique<QVWChar[]>(size);
    QVWChar* end = m_block.get();
    for (const std::u16string_view string : sorted) {
        end = std::copy(string.begin(), string.end(), end) + 1;
    }
}

} // namespace qv::core
