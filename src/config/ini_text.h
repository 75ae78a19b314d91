// The text of an ini file, to a table and back.
//
//     [section]
//     key=value
//
// A section ends with the first line that is empty or begins with white space; whatever stands
// outside of sections is ignored. The text is read in pieces of at most 510 bytes, line end
// included; the rest of a longer line counts as a line of its own. A line ends with LF or CR LF.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "config/ini_table.h"

namespace qv::core
{

// Adds what the text holds to an empty table. Result: the bytes that were read; less than all where
// a line is no section and no key. The section that the line stands in, if any, is not read then.
std::size_t ReadIni(std::string_view text, IniTable* table);

// The lines of one section, with the empty one that closes it.
void WriteIni(const IniSection& section, std::string* text);

// What a save writes: made when it is first asked for, then kept up to date, so that a save after
// one change does not cost the conversion of all.
class IniText
{
public:
    // Of a table that has not changed but by what Update() was told of.
    const std::string& Of(const IniTable& table, std::string_view unread);
    void Update(const IniTable& table, const IniTable::Place& place);
    void Forget() { m_isWhole = false; }

private:
    std::string m_text;
    std::vector<std::size_t> m_sizes; // of each section in it
    bool m_isWhole = false;
};

} // namespace qv::core
