#include "config/ini_text.h"

#include <algorithm>
#include <cctype>
#include <new>
#include <numeric>

#include "platform/error.h"
#include "platform/locale.h"

namespace qv::core
{

namespace
{

constexpr std::size_t kPiece = 510;

bool IsAscii(std::string_view text)
{
    unsigned char all = 0;
    for (const char byte : text) {
        all |= static_cast<unsigned char>(byte);
    }
    return all < 0x80;
}

// The pieces of a text, one by one.
class Pieces
{
public:
    explicit Pieces(std::string_view text) : m_text(text) {}

    // False at the end. A piece has no line end, and ends before its first NUL.
    bool Next(std::string_view* piece)
    {
        m_at = m_next;
        const std::string_view rest = m_text.substr(m_at);
        if (rest.empty()) {
            return false;
        }
        const std::size_t feed = rest.substr(0, kPiece + 2).find('\n');
        const bool hasReturn = feed != rest.npos && feed != 0 && rest[feed - 1] == '\r';
        const std::size_t length = feed - (hasReturn ? 1 : 0);
        if (feed != rest.npos && length < kPiece) {
            *piece = rest.substr(0, length);
            m_next = m_at + feed + 1;
        } else {
            *piece = rest.substr(0, kPiece);
            m_next = m_at + piece->size();
        }
        *piece = piece->substr(0, piece->find('\0'));
        return true;
    }
    // Where the piece that came last begins.
    std::size_t At() const { return m_at; }

private:
    std::string_view m_text;
    std::size_t m_at = 0;
    std::size_t m_next = 0;
};

// A line that is not ASCII, as wide text.
class WideLine
{
public:
    explicit WideLine(std::string_view line)
    {
        m_count = platform::MultiByteToWideChar(platform::CP_ACP, 0, line.data(),
                                                static_cast<int>(line.size()), m_units, kRoom);
        if (m_count == 0 && platform::GetLastError() == platform::ERROR_OUTOFMEMORY) {
            throw std::bad_alloc();
        }
    }
    std::u16string_view Text() const { return {m_units, static_cast<std::size_t>(m_count)}; }

private:
    // Some charsets have bytes that stand for several characters.
    static constexpr int kRoom = 8 * kPiece;

    int m_count;
    char16_t m_units[kRoom];
};

std::u16string_view Keep(TextArena& arena, std::string_view ascii)
{
    char16_t* const kept = arena.Take(ascii.size());
    std::copy(ascii.begin(), ascii.end(), kept);
    return {kept, ascii.size()};
}

std::u16string_view Keep(TextArena& arena, std::u16string_view text)
{
    return arena.Keep(text);
}

template <class Entry> void Name(Entry* entry, TextArena& arena)
{
    char16_t* const folded = arena.Take(entry->name.size());
    FoldName(entry->name, folded);
    entry->folded = {folded, entry->name.size()};
}

// Blanks at both ends go, but not from a text of nothing else.
template <class Text> Text Trimmed(Text text)
{
    const auto first =
        std::find_if(text.begin(), text.end(), [](auto unit) { return unit != ' '; });
    if (first == text.end()) {
        return text;
    }
    text.remove_prefix(static_cast<std::size_t>(first - text.begin()));
    while (text.back() == ' ') {
        text.remove_suffix(1);
    }
    return text;
}

template <class Text> bool ReadHeader(Text line, TextArena& arena, IniSection* section)
{
    const std::size_t close = line.rfind(']');
    if (close == line.npos) {
        return false;
    }
    section->name = Keep(arena, line.substr(1, close - 1));
    Name(section, arena);
    return true;
}

template <class Text> bool ReadKey(Text line, TextArena& arena, IniSection* section)
{
    const std::size_t equals = line.find('=');
    if (equals == line.npos) {
        return false;
    }
    IniKey key;
    key.name = Keep(arena, Trimmed(line.substr(0, equals)));
    key.value = Keep(arena, Trimmed(line.substr(equals + 1)));
    Name(&key, arena);
    section->keys.Append(key);
    return true;
}

// read(text) with the line in the form that is cheaper to read.
template <class Read> bool ReadLine(std::string_view line, Read read)
{
    return IsAscii(line) ? read(line) : read(WideLine(line).Text());
}

bool EndsSection(std::string_view line)
{
    return line.empty() || std::isspace(static_cast<unsigned char>(line[0])) != 0;
}

void Store(IniSection&& section, IniTable* table)
{
    section.keys.Order();
    table->Append(std::move(section));
}

// Reads the section whose header is the line. False at a line that ends the load.
bool ReadSection(std::string_view line, Pieces& pieces, IniTable* table)
{
    TextArena& arena = table->Arena();
    IniSection section;
    if (!ReadLine(line, [&](auto text) { return ReadHeader(text, arena, &section); })) {
        return false;
    }
    while (pieces.Next(&line) && !EndsSection(line)) {
        if (!ReadLine(line, [&](auto text) { return ReadKey(text, arena, &section); })) {
            return false;
        }
    }
    Store(std::move(section), table);
    return true;
}

void Narrow(std::u16string_view text, std::string* narrow)
{
    const std::size_t before = narrow->size();
    narrow->resize(before + text.size());
    char16_t all = 0;
    std::transform(text.begin(), text.end(), narrow->data() + before, [&](char16_t unit) {
        all |= unit;
        return static_cast<char>(unit);
    });
    if (all < 0x80) {
        return;
    }
    const int units = static_cast<int>(text.size());
    const int size = platform::WideCharToMultiByte(platform::CP_ACP, 0, text.data(), units, nullptr,
                                                   0, nullptr, nullptr);
    if (size == 0) {
        throw std::bad_alloc();
    }
    narrow->resize(before + static_cast<std::size_t>(size));
    if (platform::WideCharToMultiByte(platform::CP_ACP, 0, text.data(), units,
                                      narrow->data() + before, size, nullptr, nullptr) == 0) {
        throw std::bad_alloc();
    }
}

} // namespace

std::size_t ReadIni(std::string_view text, IniTable* table)
{
    Pieces pieces(text);
    std::size_t read = text.size();
    for (std::string_view line; pieces.Next(&line);) {
        const std::size_t start = pieces.At();
        if (line.substr(0, 1) == "[" && !ReadSection(line, pieces, table)) {
            read = start;
            break;
        }
    }
    table->Order();
    return read;
}

void WriteIni(const IniSection& section, std::string* text)
{
    *text += '[';
    Narrow(section.name, text);
    *text += "]\n";
    for (const IniKey& key : section.keys) {
        Narrow(key.name, text);
        *text += '=';
        Narrow(key.value, text);
        // One that belongs to the value would be taken for a part of the line end.
        *text += text->back() == '\r' ? "\r\n" : "\n";
    }
    *text += '\n';
}

const std::string& IniText::Of(const IniTable& table, std::string_view unread)
{
    if (!m_isWhole) {
        m_text.clear();
        m_sizes.clear();
        for (const IniSection& section : table.Sections()) {
            const std::size_t before = m_text.size();
            WriteIni(section, &m_text);
            m_sizes.push_back(m_text.size() - before);
        }
        m_text += unread;
        m_isWhole = true;
    }
    return m_text;
}

void IniText::Update(const IniTable& table, const IniTable::Place& place)
{
    if (!m_isWhole) {
        return;
    }
    m_isWhole = false; // until it is, whatever is thrown meanwhile
    std::string lines;
    WriteIni(table.Sections()[place.section], &lines);
    const auto size = m_sizes.begin() + static_cast<std::ptrdiff_t>(place.section);
    const std::size_t start = std::accumulate(m_sizes.begin(), size, std::size_t{0});
    m_text.replace(start, place.isNew ? 0 : *size, lines);
    if (place.isNew) {
        m_sizes.insert(size, lines.size());
    } else {
        *size = lines.size();
    }
    m_isWhole = true;
}

} // namespace qv::core
