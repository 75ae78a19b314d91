#include <qvcore6/utf16file.h>
#include <unicode/ustdio.h>
#include <unicode/ustring.h>

#include <cstdio>
#include <iterator>

#include "platform/locale.h"
#include "platform/section_hold.h"
#include "platform/stream_file.h"
#include "text/wide_units.h"

using namespace qv;

namespace
{

constexpr QVWChar kLineEnd[] = {u'\r', u'\n'};

} // namespace

UFILE* QVFileOpenUTF16(const char* path, const char* mode)
{
    if (path == nullptr || mode == nullptr) {
        return nullptr;
    }
    // Opening can take long, as with a pipe: not under the lock.
    std::FILE* const stream = platform::fopen(path, mode);
    if (stream == nullptr) {
        return nullptr;
    }
    const platform::SectionHold locked(&platform::g_localeLock);
    UFILE* const file = u_fadopt(stream, nullptr, "UTF-16");
    if (file == nullptr) {
        std::fclose(stream);
    }
    return file;
}

void QVFileCloseUTF16(UFILE* file)
{
    if (file != nullptr) {
        u_fflush(file); // may take long as well
        const platform::SectionHold locked(&platform::g_localeLock);
        u_fclose(file);
    }
}

QVWChar* QVFileGetLineUTF16(QVWChar* buffer, int32_t size, UFILE* file)
{
    if (buffer == nullptr || file == nullptr || u_fgets(buffer, size, file) == nullptr) {
        return nullptr;
    }
    // The read stops behind the first line end, so there is none in front of the last two units.
    std::size_t length = core::WideLength(buffer);
    while (length > 0 && (buffer[length - 1] == u'\r' || buffer[length - 1] == u'\n')) {
        --length;
    }
    buffer[length] = 0;
    return buffer;
}

int32_t QVFileWriteLineUTF16(const QVWChar* line, UFILE* file)
{
    if (line == nullptr || file == nullptr) {
        return 0;
    }
    // Not u_fputs: it ends lines as the system does.
    const int32_t written = u_file_write(line, u_strlen(line), file);
    return written + u_file_write(kLineEnd, std::size(kLineEnd), file);
}
