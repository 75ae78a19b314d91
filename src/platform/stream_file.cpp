#include "platform/stream_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace qv::platform
{

namespace
{

// The same file under another number; the stream is closed.
std::FILE* MoveAboveStandardNumbers(std::FILE* stream, const char* mode)
{
    const int moved = fcntl(fileno(stream), F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    std::fclose(stream);
    std::FILE* const above = moved >= 0 ? fdopen(moved, mode) : nullptr;
    if (above == nullptr && moved >= 0) {
        close(moved);
    }
    return above;
}

} // namespace

std::FILE* fopen(const char* path, const char* mode)
{
    // The C library looks at seven characters, in any order behind the first.
    char withoutInheriting[16] = {mode[0], 'e'};
    if (mode[0] != 0) {
        std::strncpy(withoutInheriting + 2, mode + 1, sizeof withoutInheriting - 3);
    }
    std::FILE* stream = nullptr;
    do {
        stream = std::fopen(path, withoutInheriting);
    } while (stream == nullptr && errno == EINTR);
    const bool isStandard = stream != nullptr && fileno(stream) <= STDERR_FILENO;
    return isStandard ? MoveAboveStandardNumbers(stream, withoutInheriting) : stream;
}

} // namespace qv::platform
