#include "report.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>

namespace host
{

namespace
{

constexpr std::size_t kValueColumn = 24;

} // namespace

std::string Row(int indent, const std::string& label, const std::string& value)
{
    std::string row = std::string(static_cast<std::size_t>(indent), ' ') + label;
    row.resize(std::max(row.size(), kValueColumn), ' ');
    return row + " " + value + "\n";
}

std::string Rows(int indent, const std::string& rows)
{
    std::string shown;
    std::size_t begin = 0;
    while (begin < rows.size()) {
        std::size_t end = rows.find('\n', begin);
        end = end == std::string::npos ? rows.size() : end;
        const std::string row = rows.substr(begin, end - begin);
        const std::size_t tab = row.find('\t');
        shown += tab == std::string::npos
                     ? Row(indent, "", Shown(row))
                     : Row(indent, Shown(row.substr(0, tab)), Shown(row.substr(tab + 1)));
        begin = end + 1;
    }
    return shown;
}

void PrintRow(int indent, const std::string& label, const std::string& value)
{
    std::fputs(Row(indent, label, value).c_str(), stdout);
}

void PrintProblem(const std::string& text)
{
    std::fflush(stdout);
    std::fprintf(stderr, "host: %s\n", Shown(text).c_str());
}

std::string Shown(const std::string& text)
{
    std::string shown;
    for (const char byte : text) {
        const auto value = static_cast<unsigned char>(byte);
        if (value >= 0x20 && value != 0x7F) {
            shown.push_back(byte);
            continue;
        }
        char code[8];
        std::snprintf(code, sizeof code, "\\x%02X", value);
        shown += code;
    }
    return shown;
}

std::string Microseconds(double value)
{
    char text[40];
    std::snprintf(text, sizeof text, value < 10 ? "%.3f us" : "%.1f us", value);
    return text;
}

} // namespace host
