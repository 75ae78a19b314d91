#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <string_view>

#include "platform/descriptor_handle.h"
#include "platform/error.h"
#include "platform/full_path.h"
#include "platform/native_path.h"
#include "platform/no_cancellation.h"
#include "platform/path_text.h"

namespace qv::platform
{

namespace
{

bool EndsInSeparator(std::u16string_view path)
{
    return !path.empty() && (path.back() == u'/' || path.back() == u'\\');
}

// A name that nobody can foresee and that no other process tries at the same time.
DWORD RandomHex(WCHAR (&digits)[8])
{
    std::uint32_t number = 0;
    while (getrandom(&number, sizeof number, 0) != sizeof number) {
        if (errno != EINTR) {
            return ErrorFromErrno(errno);
        }
    }
    for (WCHAR& digit : digits) {
        digit = u"0123456789abcdef"[number & 0xF];
        number >>= 4;
    }
    return ERROR_SUCCESS;
}

// 80 if there is such a file.
DWORD MakeFile(const WCHAR* name)
{
    NativePath path;
    if (const DWORD error = path.Set(name)) {
        return error;
    }
    const Descriptor file = OpenPath(path.Text(), O_RDWR | O_CREAT | O_EXCL, 0600);
    if (file < 0) {
        return errno == EEXIST                       ? ERROR_FILE_EXISTS
               : errno == ENOENT || errno == ENOTDIR ? ERROR_DIRECTORY
                                                     : ErrorFromErrno(errno);
    }
    fchmod(file, 0600); // it is about to be opened again, whatever the umask is
    CloseDescriptor(file);
    return ERROR_SUCCESS;
}

DWORD MakeTemporary(std::u16string_view folder, std::u16string_view prefix, WCHAR* name)
{
    WCHAR random[8];
    constexpr std::u16string_view kSuffix = u".tmp";
    const bool needsSeparator = !EndsInSeparator(folder);
    if (folder.empty()) {
        return ERROR_DIRECTORY;
    }
    if (folder.size() + prefix.size() + std::size(random) + kSuffix.size() + 2 > MAX_PATH) {
        return ERROR_BUFFER_OVERFLOW;
    }
    DWORD error;
    do {
        error = RandomHex(random);
        if (error != ERROR_SUCCESS) {
            return error;
        }
        WCHAR* end = std::copy(folder.begin(), folder.end(), name);
        if (needsSeparator) {
            *end++ = u'/';
        }
        end = std::copy(prefix.begin(), prefix.end(), end);
        end = std::copy(std::begin(random), std::end(random), end);
        end = std::copy(kSuffix.begin(), kSuffix.end(), end);
        *end = 0;
        error = MakeFile(name);
    } while (error == ERROR_FILE_EXISTS);
    return error;
}

} // namespace

DWORD GetTempPathW(DWORD size, WCHAR* buffer)
{
    const KeepErrno keep;
    const char* const chosen = secure_getenv("TMPDIR");
    const std::string_view folder = chosen != nullptr && *chosen != '\0' ? chosen : "/tmp";
    // A path that long can name no file; its length says so.
    WCHAR whole[PATH_MAX + 1];
    std::size_t length = FilePathFromBytes(folder, whole, PATH_MAX);
    if (length <= PATH_MAX && whole[length - 1] != u'/') {
        whole[length++] = u'/';
    }
    if (length >= size) {
        return static_cast<DWORD>(length + 1);
    }
    *std::copy_n(whole, length, buffer) = 0;
    return static_cast<DWORD>(length);
}

unsigned GetTempFileNameW(const WCHAR* folder, const WCHAR* prefix, unsigned /*unique*/,
                          WCHAR* name)
{
    const KeepErrno keep;
    const NoCancellation noCancellation;
    if (const DWORD error = MakeTemporary(folder, prefix, name)) {
        *name = 0;
        SetLastError(error);
        return 0;
    }
    return 1;
}

} // namespace qv::platform
