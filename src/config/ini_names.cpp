#include "config/ini_names.h"

#include <qvcore6/str.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>

#include "text/ascii.h"

namespace qv::core
{

void FoldName(std::u16string_view name, char16_t* folded)
{
    std::transform(name.begin(), name.end(), folded, [](char16_t unit) {
        return IsAscii(unit) ? FoldAscii<Case::Lower>(unit) : QVToLowerW(unit);
    });
}

int CompareFolded(std::u16string_view first, std::u16string_view second)
{
    // Names of one file begin alike: four units at a time.
    const std::size_t common = std::min(first.size(), second.size());
    std::size_t at = 0;
    for (; at + 4 <= common; at += 4) {
        std::uint64_t units[2];
        std::memcpy(&units[0], &first[at], sizeof units[0]);
        std::memcpy(&units[1], &second[at], sizeof units[1]);
        if (units[0] != units[1]) {
            break;
        }
    }
    while (at != common && first[at] == second[at]) {
        ++at;
    }
    if (at != common) {
        return first[at] < second[at] ? -1 : 1;
    }
    return (first.size() > common ? 1 : 0) - (second.size() > common ? 1 : 0);
}

FoldedName::FoldedName(std::u16string_view name)
{
    char16_t* room = m_room;
    if (name.size() > std::size(m_room)) {
        m_long.resize(name.size());
        room = m_long.data();
    }
    FoldName(name, room);
    m_text = {room, name.size()};
}

char16_t* TextArena::Take(std::size_t units)
{
    constexpr std::size_t kBlock = 0x4000;
    if (units > m_left) {
        const std::size_t size = std::max(units, kBlock);
        m_blocks.push_back(std::make_unique_for_overwrite<char16_t[]>(size));
        m_next = m_blocks.back().get();
        m_left = size;
    }
    char16_t* const taken = m_next;
    m_next += units;
    m_left -= units;
    m_used += units;
    return taken;
}

std::u16string_view TextArena::Keep(std::u16string_view text)
{
    char16_t* const kept = Take(text.size());
    std::copy(text.begin(), text.end(), kept);
    return {kept, text.size()};
}

} // namespace qv::core
