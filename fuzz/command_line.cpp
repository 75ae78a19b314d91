// Command lines of any shape: no write or read outside the line, and arguments that are quoted by
// the rules come back as they were.
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "platform/command_line.h"
#include "platform/path_text.h"

using namespace qv::platform;

namespace
{

std::vector<std::string> Split(const std::u16string& line)
{
    NativeStrings strings = NativeStrings::OfCommandLine(line);
    std::vector<std::string> result;
    for (char* const* string = strings.Array(); *string != nullptr; ++string) {
        result.emplace_back(*string);
    }
    return result;
}

std::string Quoted(std::string_view argument)
{
    std::string quoted = "\"";
    std::size_t backslashes = 0;
    for (const char byte : argument) {
        if (byte == '"') {
            quoted.append(backslashes + 1, '\\');
        }
        backslashes = byte == '\\' ? backslashes + 1 : 0;
        quoted += byte;
    }
    return quoted.append(backslashes, '\\') + '"';
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // Bytes without zeros, so that the fuzzer finds quotes and blanks soon.
    std::string bytes(reinterpret_cast<const char*>(data), size);
    bytes.resize(std::strlen(bytes.c_str()));
    const std::vector<std::string> arguments = Split(PathFromBytes(bytes));
    std::size_t length = 0;
    std::string again = "\"program\"";
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        length += arguments[i].size();
        if (i > 0) {
            again += ' ' + Quoted(arguments[i]);
        }
    }
    std::vector<std::string> expected = arguments;
    expected.at(0) = "program"; // of any line there is at least the name
    if (length > bytes.size() || Split(PathFromBytes(again)) != expected) {
        std::abort();
    }
    return 0;
}
