// Names of objects that processes share, and the files that stand for them.
#pragma once

#include <cstddef>
#include <string_view>

#include "platform/types.h"

namespace qv::platform
{

inline constexpr std::size_t kMaxObjectName = 260; // units

class ObjectName
{
public:
    // From text in CP_ACP, so that processes with different charsets meet. Text that the charset
    // does not have is taken byte by byte (b becomes the unit 0xDC00 + b), and then equals no
    // other. Errors: 206 for a name that is too long; 14.
    DWORD Widen(const char* text);

    std::u16string_view Units() const { return {m_units, m_count}; }

private:
    WCHAR m_units[kMaxObjectName];
    std::size_t m_count = 0;
};

// The path of the file for a name: readable, of bounded length, and without a separator. Different
// names have different paths, save that long ones are hashed: the file holds its full name.
class ObjectPath
{
public:
    // Errors: 206; 3 for a backslash, as there is no folder of that name.
    DWORD Make(std::u16string_view name);
    // Of a file in the folder of the objects. False for one that stands for no name.
    bool MakeOfFile(std::string_view file);

    const char* Text() const { return m_text; }

private:
    void AppendText(std::string_view text);
    // What is beyond the room is only counted: such a name is cut.
    void Append(char byte)
    {
        if (m_length < sizeof m_text) {
            m_text[m_length] = byte;
        }
        ++m_length;
    }
    void AppendEscaped(unsigned char byte);
    void AppendUtf8(std::uint32_t point);
    void ShortenFrom(std::size_t start, std::u16string_view name);

    char m_text[240];
    std::size_t m_length = 0;
};

// Where the files lie.
inline constexpr char kObjectFolder[] = "/dev/shm";

} // namespace qv::platform
