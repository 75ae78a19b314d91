#include "platform/command_line.h"

#include "platform/path_text.h"

namespace qv::platform
{

namespace
{

bool IsBlank(char byte)
{
    return byte == ' ' || byte == '\t';
}

// Takes a line apart in its own place: what is written never overtakes what is read.
class Splitter
{
public:
    explicit Splitter(std::string& line) : m_line(line) {}

    std::vector<std::size_t> Split()
    {
        TakeName();
        while (SkipBlanks()) {
            TakeArgument();
        }
        m_line.resize(m_written);
        return std::move(m_begins);
    }

private:
    bool IsAtEnd() const { return m_read == m_line.size(); }
    char Next() const { return m_line[m_read]; } // the terminator at the end
    bool IsBetweenStrings() const { return IsAtEnd() || (!m_isQuoted && IsBlank(Next())); }

    void Begin()
    {
        m_begins.push_back(m_written);
        m_isQuoted = false;
    }
    // Steps over the blank first: the terminator may take its place.
    void End()
    {
        m_read += IsAtEnd() ? 0 : 1;
        Put('\0');
    }
    void Put(char byte)
    {
        if (m_written == m_line.size()) {
            m_line.push_back(byte); // the last terminator
            m_read = m_line.size();
        } else {
            m_line[m_written] = byte;
        }
        ++m_written;
    }

    bool SkipBlanks()
    {
        while (!IsAtEnd() && IsBlank(Next())) {
            ++m_read;
        }
        return !IsAtEnd();
    }

    void TakeName()
    {
        for (Begin(); !IsBetweenStrings(); ++m_read) {
            if (Next() == '"') {
                m_isQuoted = !m_isQuoted;
            } else {
                Put(Next());
            }
        }
        End();
    }

    void TakeArgument()
    {
        Begin();
        while (!IsBetweenStrings()) {
            std::size_t backslashes = 0;
            for (; !IsAtEnd() && Next() == '\\'; ++m_read) {
                ++backslashes;
            }
            if (!IsAtEnd() && Next() == '"') {
                PutBackslashes(backslashes / 2);
                TakeQuote(backslashes % 2 != 0);
                continue;
            }
            PutBackslashes(backslashes);
            if (!IsBetweenStrings()) {
                Put(Next());
                ++m_read;
            }
        }
        End();
    }

    void PutBackslashes(std::size_t count)
    {
        for (; count != 0; --count) {
            Put('\\');
        }
    }

    void TakeQuote(bool isOrdinary)
    {
        ++m_read;
        if (!isOrdinary && m_isQuoted && !IsAtEnd() && Next() == '"') {
            ++m_read;
            isOrdinary = true;
        }
        if (isOrdinary) {
            Put('"');
        } else {
            m_isQuoted = !m_isQuoted;
        }
    }

    std::string& m_line;
    std::size_t m_read = 0;
    std::size_t m_written = 0;
    bool m_isQuoted = false;
    std::vector<std::size_t> m_begins;
};

} // namespace

NativeStrings NativeStrings::OfCommandLine(std::u16string_view line)
{
    NativeStrings strings(PathToBytes(line));
    strings.m_begins = Splitter(strings.m_bytes).Split();
    return strings;
}

NativeStrings NativeStrings::OfBlock(const WCHAR* block)
{
    NativeStrings strings{std::string()};
    while (*block != 0) {
        const std::u16string_view text(block);
        strings.m_begins.push_back(strings.m_bytes.size());
        strings.m_bytes += PathToBytes(text);
        strings.m_bytes += '\0';
        block += text.size() + 1;
    }
    return strings;
}

char* const* NativeStrings::Array()
{
    m_array.clear();
    m_array.reserve(m_begins.size() + 1);
    for (const std::size_t begin : m_begins) {
        m_array.push_back(m_bytes.data() + begin);
    }
    m_array.push_back(nullptr);
    return m_array.data();
}

} // namespace qv::platform
