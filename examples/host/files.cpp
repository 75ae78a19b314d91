#include "files.h"

#include <qvcore6/directory.h>

#include <algorithm>
#include <unistd.h>

#include "store.h"

namespace host
{

namespace
{

constexpr uint32_t kDirectoryBit = 0x4000; // of an entry's mode

// A name may hold bytes that are no text.
std::string Legible(std::u16string path)
{
    for (std::size_t i = 0; i < path.size(); ++i) {
        const bool isPair =
            (path[i] & 0xFC00) == 0xD800 && i + 1 < path.size() && (path[i + 1] & 0xFC00) == 0xDC00;
        if (isPair) {
            ++i;
        } else if ((path[i] & 0xF800) == 0xD800) {
            path[i] = 0xFFFD;
        }
    }
    return Narrow(path);
}

class Folder
{
public:
    explicit Folder(const std::u16string& path) : m_result(QVDirOpen(path.c_str(), &m_folder)) {}
    ~Folder()
    {
        if (IsOpen()) {
            QVDirClose(m_folder);
        }
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    bool IsOpen() const { return m_result >= 0; }
    bool Next(QVDirEntry& entry) { return QVDirRead(m_folder, &entry, 0) >= 0; }

private:
    QVDir m_folder = QV_DIR_NONE;
    QVRESULT m_result;
};

std::vector<TextFile> FilesIn(Folder& folder, const std::u16string& path)
{
    std::vector<TextFile> files;
    QVDirEntry entry;
    while (folder.Next(entry)) {
        if ((entry.m_mode & kDirectoryBit) == 0) {
            const std::u16string file = path + (path.back() == u'/' ? u"" : u"/") + entry.m_name;
            files.push_back({file, Legible(file), u""});
        }
    }
    std::sort(files.begin(), files.end(),
              [](const TextFile& a, const TextFile& b) { return a.path < b.path; });
    return files;
}

} // namespace

std::vector<TextFile> FindFiles(const std::vector<std::string>& arguments,
                                std::vector<std::string>& problems)
{
    std::vector<TextFile> files;
    for (const std::string& argument : arguments) {
        const std::u16string path = Widen(argument);
        if (argument == "-") {
            files.push_back({u"", argument, u""});
        } else if (path.empty()) {
            problems.push_back(argument + ": the name is not UTF-8 (give its folder instead)");
        } else if (Folder folder(path); folder.IsOpen()) {
            const std::vector<TextFile> found = FilesIn(folder, path);
            files.insert(files.end(), found.begin(), found.end());
            if (found.empty()) {
                problems.push_back(argument + ": there is no file in this folder");
            }
        } else {
            files.push_back({path, argument, u""});
        }
    }
    return files;
}

void Handle::Close()
{
    // The standard streams are lent, not ours.
    if (m_handle > STDERR_FILENO) {
        QVFileClose(m_handle);
    }
    m_handle = QV_HANDLE_NONE;
}

QVRESULT Open(const TextFile& file, Handle& handle)
{
    if (file.path.empty()) {
        *handle.Place() = STDIN_FILENO;
        return S_OK;
    }
    return QVFileOpen(file.path.c_str(), QV_FILE_READ, 0, handle.Place());
}

QVRESULT Read(const Handle& handle, std::vector<char>& piece)
{
    uint32_t size = 0;
    const QVRESULT result =
        QVFileRead(handle.Get(), piece.data(), static_cast<uint32_t>(piece.size()), &size);
    piece.resize(size);
    return result == QV_E_END_OF_DATA ? S_OK : result;
}

QVRESULT ReadFull(const Handle& handle, std::vector<char>& piece)
{
    const std::size_t most = piece.size();
    std::vector<char> part(most);
    piece.clear();
    QVRESULT result = S_OK;
    do {
        part.resize(most - piece.size());
        result = Read(handle, part);
        piece.insert(piece.end(), part.begin(), part.end());
    } while (result >= 0 && !part.empty() && piece.size() < most);
    return result;
}

QVRESULT Write(const Handle& handle, const char* bytes, std::size_t size)
{
    while (size != 0) {
        uint32_t written = 0;
        const auto most = static_cast<uint32_t>(std::min<std::size_t>(size, UINT32_MAX));
        const QVRESULT result = QVFileWrite(handle.Get(), bytes, most, &written);
        if (result < 0) {
            return result;
        }
        bytes += written;
        size -= written;
    }
    return S_OK;
}

} // namespace host
