// Ini files of any bytes: the table is the one that the plain reading of the format gives, and it
// is the same after it was saved and loaded again.
#include <qvcore6/str.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <string>
#include <string_view>

#include "config/ini_text.h"
#include "text/ansi_string.h"

namespace
{

using qv::core::IniTable;

void Require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

// The format as it is told: pieces of at most 510 bytes, in maps with one comparison.
struct Less
{
    bool operator()(const std::u16string& first, const std::u16string& second) const
    {
        return std::lexicographical_compare(
            first.begin(), first.end(), second.begin(), second.end(),
            [](char16_t a, char16_t b) { return QVToLowerW(a) < QVToLowerW(b); });
    }
};
using Keys = std::map<std::u16string, std::u16string, Less>;
using Sections = std::map<std::u16string, Keys, Less>;

struct Line
{
    std::size_t start;
    std::string text; // with its end, if it has one
};

bool NextLine(std::string_view text, std::size_t& at, Line* line)
{
    *line = {at, ""};
    while (at != text.size() && line->text.size() != 510) {
        if (text.substr(at, 2) == "\r\n") {
            ++at;
        }
        line->text += text[at++];
        if (line->text.back() == '\n') {
            break;
        }
    }
    return line->start != at;
}

std::u16string Trimmed(std::u16string text)
{
    const std::size_t first = text.find_first_not_of(u' ');
    return first == text.npos ? text : text.substr(first, text.find_last_not_of(u' ') - first + 1);
}

std::size_t ReadPlainly(std::string_view text, Sections* sections)
{
    std::size_t at = 0;
    for (Line line; NextLine(text, at, &line);) {
        if (line.text[0] != '[') {
            continue;
        }
        const std::size_t start = line.start;
        const std::u16string header = QVAnsiToWString(line.text.c_str());
        const std::size_t close = header.rfind(u']');
        if (close == header.npos) {
            return start;
        }
        Keys keys;
        while (NextLine(text, at, &line)) {
            const char first = line.text[0];
            if (first == 0 || first == ' ' || (first >= '\t' && first <= '\r')) {
                break;
            }
            std::u16string wide = QVAnsiToWString(line.text.c_str());
            if (wide.back() == u'\n') {
                wide.pop_back();
            }
            const std::size_t equals = wide.find(u'=');
            if (equals == wide.npos) {
                return start;
            }
            keys[Trimmed(wide.substr(0, equals))] = Trimmed(wide.substr(equals + 1));
        }
        (*sections)[header.substr(1, close - 1)] = keys;
    }
    return text.size();
}

bool Same(const IniTable& table, const Sections& sections)
{
    return std::equal(table.Sections().begin(), table.Sections().end(), sections.begin(),
                      sections.end(), [](const auto& section, const auto& other) {
                          return section.name == other.first &&
                                 std::equal(
                                     section.keys.begin(), section.keys.end(), other.second.begin(),
                                     other.second.end(), [](const auto& key, const auto& pair) {
                                         return key.name == pair.first && key.value == pair.second;
                                     });
                      });
}

// Some lines grow when they are written: bytes that are no characters.
bool HasLongLine(std::string_view text)
{
    for (std::size_t end; !text.empty(); text.remove_prefix(std::min(end, text.size() - 1) + 1)) {
        end = text.find('\n');
        if (std::min(end, text.size()) >= 510) {
            return true;
        }
    }
    return false;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/)
{
    return setenv("LC_ALL", "C.UTF-8", 1);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    IniTable table;
    const std::size_t read = qv::core::ReadIni(text, &table);
    Sections plain;
    Require(read == ReadPlainly(text, &plain) && Same(table, plain));

    qv::core::IniText writer;
    const std::string unread = text.substr(read);
    const std::string saved = writer.Of(table, unread);
    if (!HasLongLine(saved.substr(0, saved.size() - unread.size()))) {
        IniTable again;
        Require(saved.substr(qv::core::ReadIni(saved, &again)) == unread && Same(again, plain));
    }
    // One change: the text that is kept up to date is the one that is made anew.
    const std::u16string name = QVAnsiToWString(text.substr(0, 5).c_str());
    writer.Update(table, table.Set(name, name, u"changed"));
    Require(writer.Of(table, unread) == qv::core::IniText().Of(table, unread));
    Require(table.FindKey(name, name)->value == u"changed");
    return 0;
}
