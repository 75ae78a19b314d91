#include "config/ini_table.h"

#include <utility>

namespace qv::core
{

namespace
{

template <class Entry>
Entry Named(TextArena& arena, std::u16string_view name, std::u16string_view folded)
{
    Entry entry;
    entry.name = arena.Keep(name);
    entry.folded = arena.Keep(folded);
    return entry;
}

} // namespace

const IniSection* IniTable::FindSection(std::u16string_view name) const
{
    return m_sections.Find(FoldedName(name).Text());
}

const IniKey* IniTable::FindKey(std::u16string_view section, std::u16string_view key) const
{
    const IniSection* const found = FindSection(section);
    return found != nullptr ? found->keys.Find(FoldedName(key).Text()) : nullptr;
}

IniTable::Place IniTable::Set(std::u16string_view section, std::u16string_view key,
                              std::u16string_view value)
{
    if (m_arena.Used() > m_compactAt) {
        Compact();
    }
    const FoldedName foldedSection(section);
    const FoldedName foldedKey(key);
    const std::u16string_view kept = m_arena.Keep(value);
    const std::size_t at = m_sections.LowerBound(foldedSection.Text());
    const bool isThere = at != m_sections.Size() && m_sections[at].folded == foldedSection.Text();
    if (!isThere) {
        auto made = Named<IniSection>(m_arena, section, foldedSection.Text());
        auto first = Named<IniKey>(m_arena, key, foldedKey.Text());
        first.value = kept;
        made.keys.Append(first);
        m_sections.Insert(at, std::move(made));
        return {at, true};
    }
    FoldedRow<IniKey>& keys = m_sections[at].keys;
    const std::size_t keyAt = keys.LowerBound(foldedKey.Text());
    if (keyAt == keys.Size() || keys[keyAt].folded != foldedKey.Text()) {
        keys.Insert(keyAt, Named<IniKey>(m_arena, key, foldedKey.Text()));
    }
    keys[keyAt].value = kept;
    return {at, false};
}

// Values that have been replaced stay in the arena: it is made anew when half of it is such.
void IniTable::Compact()
{
    IniTable fresh;
    for (const IniSection& section : m_sections) {
        auto copy = Named<IniSection>(fresh.m_arena, section.name, section.folded);
        for (const IniKey& key : section.keys) {
            auto keyCopy = Named<IniKey>(fresh.m_arena, key.name, key.folded);
            keyCopy.value = fresh.m_arena.Keep(key.value);
            copy.keys.Append(keyCopy);
        }
        fresh.Append(std::move(copy));
    }
    fresh.m_compactAt = std::max(m_compactAt, 2 * fresh.m_arena.Used());
    *this = std::move(fresh);
}

} // namespace qv::core
