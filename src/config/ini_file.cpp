#include "config/ini_file.h"

#include <qvcore6/diagnostics.h>

#include <algorithm>
#include <utility>

#include "config/ini_text.h"
#include "frame/boundary.h"
#include "platform/error.h"
#include "platform/text_file.h"
#include "text/ansi_string.h"

using namespace qv::core;
using namespace qv::platform;

namespace
{

class TextFile
{
public:
    TextFile(const std::string& path, int flags) : m_file(_sopen(path.c_str(), flags, kDenyNone)) {}
    ~TextFile()
    {
        if (m_file != -1) {
            _close(m_file);
        }
    }
    TextFile(const TextFile&) = delete;
    TextFile& operator=(const TextFile&) = delete;

    bool IsOpen() const { return m_file != -1; }
    int Number() const { return m_file; }

    bool Status(FileStatus* status) const { return _fstat64i32(m_file, status) == 0; }

    // False if it cannot be read to its end.
    bool ReadAll(std::string* text) const
    {
        FileStatus status;
        if (!Status(&status)) {
            return false;
        }
        // One more than its size: the read that finds the end needs room.
        std::size_t size = 0;
        text->resize(static_cast<std::size_t>(status.size) + 1);
        for (;;) {
            const std::size_t room = std::min<std::size_t>(text->size() - size, 1u << 30);
            const int count = _read(m_file, text->data() + size, static_cast<unsigned>(room));
            if (count <= 0) {
                text->resize(size);
                return count == 0;
            }
            size += static_cast<std::size_t>(count);
            if (size == text->size()) {
                text->resize(2 * size);
            }
        }
    }

    // From that position on. False unless all was written.
    bool WriteAt(std::int64_t position, std::string_view text) const
    {
        if (_lseeki64(m_file, position, 0) == -1) {
            return false;
        }
        while (!text.empty()) {
            const std::size_t most = std::min<std::size_t>(text.size(), 1u << 30);
            const int count = _write(m_file, text.data(), static_cast<unsigned>(most));
            if (count <= 0) {
                return false;
            }
            text.remove_prefix(static_cast<std::size_t>(count));
        }
        return true;
    }

private:
    int m_file;
};

bool IsMissing(DWORD error)
{
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

// Puts the text in the place of what the file holds, without ever emptying it: a process that is
// killed here leaves the old text, the new one, or the old one with a piece of the new one behind
// its last section. A full disk is met before anything is overwritten. Only within a write of
// several pages a kill can leave a part of each.
bool Replace(const TextFile& file, std::string_view text)
{
    FileStatus status;
    if (!file.Status(&status)) {
        return false;
    }
    const auto before = static_cast<std::size_t>(status.size);
    const bool grows = text.size() > before;
    const bool isWritten = (!grows || file.WriteAt(status.size, text.substr(before))) &&
                           file.WriteAt(0, text.substr(0, before));
    if (isWritten && text.size() >= before) {
        return true;
    }
    const std::size_t size = isWritten ? text.size() : before;
    return _chsize_s(file.Number(), static_cast<std::int64_t>(size)) == 0 && isWritten;
}

} // namespace

IniFile::IniFile(const QVWChar* fileName)
    : m_fileName(fileName != nullptr ? fileName : u""), m_path(QVWStringToAnsi(m_fileName.c_str()))
{
    IniLockHold hold(m_lock);
    Load();
    hold.Release();
}

IniFile::~IniFile() = default;

int IniFile::SetValue(const QVWChar* section, const QVWChar* key, const QVWChar* value,
                      bool overwrite)
{
    IniLockHold hold(m_lock);
    Refresh();
    const bool isSet = overwrite || !HasValue(section, key);
    if (isSet) {
        const IniTable::Place place = m_sections.Set(section, key, value);
        m_isSaved = false; // also if what follows throws
        m_text.Update(m_sections, place);
        Save();
    }
    hold.Release();
    return isSet ? 0 : -1;
}

QVRESULT IniFile::GetValue(const QVWChar* section, const QVWChar* key, QVWChar* buffer,
                           std::size_t size, std::size_t* length)
{
    IniLockHold hold(m_lock);
    Refresh();
    QVRESULT result = QV_E_FILE_NOT_FOUND;
    if (const IniKey* const found = m_sections.FindKey(section, key)) {
        *length = found->value.size();
        result = QV_E_BUFFER_TOO_SMALL;
        if (*length < size) {
            *std::copy(found->value.begin(), found->value.end(), buffer) = 0;
            result = S_OK;
        }
    }
    hold.Release();
    return result;
}

bool IniFile::HasValue(const QVWChar* section, const QVWChar* key) const
{
    return m_sections.FindKey(section, key) != nullptr;
}

std::vector<std::u16string> IniFile::GetSections() const
{
    std::vector<std::u16string> names;
    for (const IniSection& section : m_sections.Sections()) {
        names.emplace_back(section.name);
    }
    return names;
}

std::vector<std::u16string> IniFile::GetSectionsUnder(std::u16string_view name) const
{
    std::vector<std::u16string> names;
    m_sections.ForEachUnder(name,
                            [&](const IniSection& section) { names.emplace_back(section.name); });
    return names;
}

void IniFile::Refresh()
{
    FileStatus status;
    if (_stat64i32(m_path.c_str(), &status) != 0) {
        m_isReadable = m_isReadable || IsMissing(GetLastError()); // nothing is left to be kept
        return;
    }
    if (status.modified > m_lastModified) {
        Load();
    } else if (!m_isReadable) {
        Content content;
        if (Read(&content)) {
            Take(std::move(content), true);
        }
    }
    m_lastModified = status.modified;
}

void IniFile::Load()
{
    Content content;
    const bool isReadable = Read(&content);
    Take(std::move(content), isReadable);
}

void IniFile::Take(Content&& content, bool isReadable)
{
    m_sections = std::move(content.sections);
    m_unread = std::move(content.unread);
    m_isReadable = isReadable;
    m_isSaved = true;
    m_text.Forget();
}

// False for a file that is there, but cannot be read.
bool IniFile::Read(Content* content) const
{
    const TextFile file(m_path, kReadText);
    if (!file.IsOpen()) {
        return IsMissing(GetLastError());
    }
    std::string text;
    if (!file.ReadAll(&text)) {
        return false;
    }
    content->unread = text.substr(ReadIni(text, &content->sections));
    return true;
}

int IniFile::Save(const QVWChar* fileName)
{
    const bool isOwn = fileName == nullptr;
    const std::string& text = m_text.Of(m_sections, m_unread);
    if (isOwn && !m_isReadable) {
        Tell(false);
        return 1;
    }
    const TextFile file(isOwn ? m_path : QVWStringToAnsi(fileName), kWriteText);
    const bool isWritten = file.IsOpen() && Replace(file, text);
    if (isOwn) {
        Tell(isWritten);
    }
    FileStatus status;
    if (file.IsOpen() && file.Status(&status)) {
        m_lastModified = status.modified;
    }
    return file.IsOpen() ? 0 : 1;
}

void IniFile::SaveAgain() noexcept
{
    if (m_isSaved) {
        return;
    }
    Boundary([&] {
        IniLockHold hold(m_lock);
        Refresh();
        if (!m_isSaved) { // what others have saved since has taken its place
            Save();
        }
        hold.Release();
    });
}

// Of several saves that fail the first is reported.
void IniFile::Tell(bool isSaved)
{
    m_isSaved = isSaved;
    if (!isSaved && !m_hasTold) {
        QVTrace(u"The settings could not be saved in %s\n", m_fileName.c_str());
    }
    m_hasTold = !isSaved;
}
