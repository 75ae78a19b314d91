// The table of an ini file: sections, each with keys and their values.
//
// Both levels are in the order of their folded names, and an entry keeps the name under which it
// came first. They are sorted rows, not trees: a file is read as a whole and searched often.
#pragma once

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <string>
#include <string_view>
#include <vector>

#include "config/ini_names.h"

namespace qv::core
{

struct IniKey
{
    std::u16string_view name;
    std::u16string_view folded;
    std::u16string_view value;

    void TakeContent(IniKey&& later) { value = later.value; }
};

// Entries in the order of their folded names, each once.
template <class Entry> class FoldedRow
{
public:
    // Behind all others, whatever its name is: nothing else is to be asked before Order().
    void Append(Entry entry)
    {
        m_isOrdered = m_isOrdered && (m_entries.empty() ||
                                      CompareFolded(m_entries.back().folded, entry.folded) < 0);
        m_entries.push_back(std::move(entry));
    }
    // Of several of one name the first stays, with the content of the last.
    void Order()
    {
        if (m_isOrdered) {
            return;
        }
        std::vector<std::uint32_t> order(m_entries.size());
        std::iota(order.begin(), order.end(), 0u);
        std::sort(order.begin(), order.end(), [this](std::uint32_t first, std::uint32_t second) {
            const int difference = CompareFolded(m_entries[first].folded, m_entries[second].folded);
            return difference != 0 ? difference < 0 : first < second;
        });
        std::vector<Entry> ordered;
        ordered.reserve(m_entries.size());
        for (const std::uint32_t at : order) {
            Entry& entry = m_entries[at];
            if (!ordered.empty() && ordered.back().folded == entry.folded) {
                ordered.back().TakeContent(std::move(entry));
            } else {
                ordered.push_back(std::move(entry));
            }
        }
        m_entries = std::move(ordered);
        m_isOrdered = true;
    }

    std::size_t LowerBound(std::u16string_view folded) const
    {
        const auto found = std::lower_bound(m_entries.begin(), m_entries.end(), folded,
                                            [](const Entry& entry, std::u16string_view name) {
                                                return CompareFolded(entry.folded, name) < 0;
                                            });
        return static_cast<std::size_t>(found - m_entries.begin());
    }
    // Null if there is none.
    const Entry* Find(std::u16string_view folded) const
    {
        // Often it is the one that was asked for last.
        if (m_found >= m_entries.size() || m_entries[m_found].folded != folded) {
            m_found = LowerBound(folded);
        }
        const bool isThere = m_found != m_entries.size() && m_entries[m_found].folded == folded;
        return isThere ? &m_entries[m_found] : nullptr;
    }
    Entry& Insert(std::size_t at, Entry&& entry)
    {
        return *m_entries.insert(m_entries.begin() + static_cast<std::ptrdiff_t>(at),
                                 std::move(entry));
    }

    std::size_t Size() const { return m_entries.size(); }
    Entry& operator[](std::size_t at) { return m_entries[at]; }
    const Entry& operator[](std::size_t at) const { return m_entries[at]; }
    auto begin() const { return m_entries.begin(); }
    auto end() const { return m_entries.end(); }

private:
    std::vector<Entry> m_entries;
    mutable std::size_t m_found = 0;
    bool m_isOrdered = true;
};

struct IniSection
{
    std::u16string_view name;
    std::u16string_view folded;
    FoldedRow<IniKey> keys;

    void TakeContent(IniSection&& later) { keys = std::move(later.keys); }
};

class IniTable
{
public:
    const FoldedRow<IniSection>& Sections() const { return m_sections; }
    // Null if there is none.
    const IniSection* FindSection(std::u16string_view name) const;
    const IniKey* FindKey(std::u16string_view section, std::u16string_view key) const;

    // Those of that name and below it, in their order: their names and a '\\' begin with the name
    // and a '\\', case respected.
    template <class Visit> void ForEachUnder(std::u16string_view name, Visit visit) const
    {
        std::u16string folded(FoldedName(name).Text());
        const IniSection* const own = m_sections.Find(folded);
        if (own != nullptr && own->name == name) {
            visit(*own);
        }
        folded += u'\\';
        const std::size_t first = m_sections.LowerBound(folded);
        ++folded.back();
        const std::size_t last = m_sections.LowerBound(folded);
        for (std::size_t at = first; at != last; ++at) {
            const IniSection& section = m_sections[at];
            if (section.name.starts_with(name) && section.name[name.size()] == u'\\') {
                visit(section);
            }
        }
    }

    // Where the section of the value stands, and whether it is new.
    struct Place
    {
        std::size_t section;
        bool isNew;
    };
    // Nothing has changed if it throws.
    Place Set(std::u16string_view section, std::u16string_view key, std::u16string_view value);

    // What a load builds a table with.
    TextArena& Arena() { return m_arena; }
    void Append(IniSection&& section) { m_sections.Append(std::move(section)); }
    void Order() { m_sections.Order(); }

private:
    void Compact();

    FoldedRow<IniSection> m_sections;
    TextArena m_arena;
    std::size_t m_compactAt = 0x10000; // units in the arena
};

} // namespace qv::core
