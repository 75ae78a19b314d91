// What the user sees.
#pragma once

#include <string>

namespace host
{

// A line "label  value" with the values in one column.
std::string Row(int indent, const std::string& label, const std::string& value);
// Such lines for rows "label<TAB>value<NEWLINE>".
std::string Rows(int indent, const std::string& rows);
// A line to stdout.
void PrintRow(int indent, const std::string& label, const std::string& value);
// A line to stderr, behind what stdout has shown so far.
void PrintProblem(const std::string& text);

// Text of a foreign source without what would confuse a terminal.
std::string Shown(const std::string& text);

// "412.3 us"
std::string Microseconds(double value);

} // namespace host
