#include "report.h"

#include <cstddef>
#include <cstdio>

namespace host
{

namespace
{

constexpr int kValueColumn = 24;

} // namespace

void PrintRow(int indent, const std::string& label, const std::string& value)
{
    std::printf("%*s%-*s %s\n", indent, "", kValueColumn - indent, label.c_str(), value.c_str());
}

void PrintRows(int indent, const std::string& rows)
{
    std::size_t begin = 0;
    while (begin < rows.size()) {
        std::size_t end = rows.find('\n', begin);
        end = end == std::string::npos ? rows.size() : end;
        const std::string row = rows.substr(begin, end - begin);
        const std::size_t tab = row.find('\t');
        if (tab == std::string::npos) {
            PrintRow(indent, "", Shown(row));
        } else {
            PrintRow(indent, Shown(row.substr(0, tab)), Shown(row.substr(tab + 1)));
        }
        begin = end + 1;
    }
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
