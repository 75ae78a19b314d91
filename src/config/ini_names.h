// The order of names in an ini file: without case, unit by unit.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace qv::core
{

// Writes as many units as the name has.
void FoldName(std::u16string_view name, char16_t* folded);

// Below, above or at 0, by units; a name comes before what it begins.
int CompareFolded(std::u16string_view first, std::u16string_view second);

// The form in which a name is compared.
class FoldedName
{
public:
    explicit FoldedName(std::u16string_view name);

    std::u16string_view Text() const { return m_text; }

private:
    char16_t m_room[128];
    std::u16string m_long;
    std::u16string_view m_text;
};

// Texts that live as long as the arena, or until it is emptied.
class TextArena
{
public:
    char16_t* Take(std::size_t units);
    std::u16string_view Keep(std::u16string_view text);
    // Units taken so far.
    std::size_t Used() const { return m_used; }

private:
    std::vector<std::unique_ptr<char16_t[]>> m_blocks;
    char16_t* m_next = nullptr;
    std::size_t m_left = 0;
    std::size_t m_used = 0;
};

} // namespace qv::core
