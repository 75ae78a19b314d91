// A command line or an environment block as the arrays that a program is started with.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "platform/types.h"

namespace qv::platform
{

// Terminated strings in one piece of memory.
class NativeStrings
{
public:
    // Takes a line apart by the rules of the runtime library:
    // - The first string is the program's name: quotes only delimit, a backslash is ordinary.
    // - Blanks and tabs separate the others, unless they stand between quotes.
    // - 2n backslashes and a quote are n backslashes and a quote that opens or closes; with 2n + 1
    //   the quote is an ordinary one. Backslashes elsewhere are ordinary.
    // - Two quotes in a row, between quotes, are an ordinary one.
    static NativeStrings OfCommandLine(std::u16string_view line);
    // The strings of a block that an empty one ends.
    static NativeStrings OfBlock(const WCHAR* block);

    // Ends with a null; valid as long as this object stays where it is.
    char* const* Array();

private:
    explicit NativeStrings(std::string bytes) : m_bytes(std::move(bytes)) {}

    std::string m_bytes;
    std::vector<std::size_t> m_begins;
    std::vector<char*> m_array;
};

} // namespace qv::platform
