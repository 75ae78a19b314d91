// Settings in one text file that processes share: sections of keys with values, all wide text.
#pragma once

#include <qvcore6/base.h>
#include <qvcore6/result.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "config/ini_lock.h"
#include "config/ini_table.h"
#include "config/ini_text.h"

// Names compare without case, and sections and keys come in the order of that comparison. What
// fails is thrown as EQVCoreException. One object is used by one thread after the other.
//
// What a load could not read is kept, and stands behind the table in whatever is saved: where a
// line is damaged, or longer than the format allows, nothing is lost of what follows it. A file
// that is there and cannot be read at all is not written either.
class IniFile
{
public:
    // Null is the empty name. A file that is not there is an empty one, until it is saved.
    explicit IniFile(const QVWChar* fileName);
    virtual ~IniFile();
    IniFile(const IniFile&) = delete;
    IniFile& operator=(const IniFile&) = delete;

    // Each takes the lock for a whole cycle, and sees what others saved in an earlier second than
    // that of the last look. All text is terminated.

    // 0, or -1 if there is a value already and it is not to be overwritten. A value that could not
    // be saved counts as set: see IsSaved().
    int SetValue(const QVWChar* section, const QVWChar* key, const QVWChar* value, bool overwrite);
    // 0, QV_E_FILE_NOT_FOUND, or QV_E_BUFFER_TOO_SMALL for a value that does not fit the units at
    // buffer with its terminator; nothing is copied then. *length is the value's in units, without
    // the terminator, in both cases.
    QVRESULT GetValue(const QVWChar* section, const QVWChar* key, QVWChar* buffer, std::size_t size,
                      std::size_t* length);

    // The steps of a cycle. They take no lock: they are called with it held, or by the only user.

    bool HasValue(const QVWChar* section, const QVWChar* key) const;
    std::vector<std::u16string> GetSections() const;
    // Those of that name and below it, separated by '\', case respected.
    std::vector<std::u16string> GetSectionsUnder(std::u16string_view name) const;
    // Loads the file if it has changed in a later second than the one that was seen last.
    void Refresh();
    // The table is as before if it throws.
    void Load();
    // Into the file of that name, or of one's own for null. 0, or 1 if it cannot be opened. A write
    // that fails leaves the file as it was, where its old size shows what that is.
    int Save(const QVWChar* fileName = nullptr);

    // If a save has failed: tries once more, as the last who knows of it.
    void SaveAgain() noexcept;

    // Whether the file holds what the table holds, as far as is known here.
    bool IsSaved() const { return m_isSaved; }
    // Whether the file holds text that could not be read.
    bool HasUnread() const { return !m_isReadable || !m_unread.empty(); }

    qv::core::IniLock& Lock() { return m_lock; }
    const qv::core::IniTable& Table() const { return m_sections; }

private:
    struct Content
    {
        qv::core::IniTable sections;
        std::string unread;
    };

    bool Read(Content* content) const;
    void Take(Content&& content, bool isReadable);
    void Tell(bool isSaved);

    qv::core::IniLock m_lock;
    std::u16string m_fileName;
    std::string m_path; // in the ANSI code page
    qv::core::IniTable m_sections;
    std::int64_t m_lastModified = 0; // seconds since 1970
    std::string m_unread;
    bool m_isReadable = true;
    bool m_isSaved = true;
    bool m_hasTold = false;
    qv::core::IniText m_text;
};
