/*
 * Folders: reading one entry by entry, making and removing.
 *
 * A QVDir reads one folder once. The entries come in the order of the file system, "." and ".."
 * before the others, and what comes and goes meanwhile is seen or not. The memory that it takes
 * does not depend on the number of entries. Paths are wide text in which / and \ both separate; a
 * name that is not UTF-8 has units from 0xDC80 to 0xDCFF for its stray bytes, a \ of its own is
 * 0xDC5C, and so each name opens its file again.
 *
 *     QVDir folder;
 *     QVDirEntry entry;
 *     if (QVDirOpen(u"/var/log", &folder) < 0) {
 *         return;
 *     }
 *     while (QVDirRead(folder, &entry, 0) >= 0) {
 *         if ((entry.m_mode & QV_DIR_MODE_DIRECTORY) == 0) {
 *             Handle(entry.m_name, (uint64_t)entry.m_sizeHigh << 32 | entry.m_sizeLow);
 *         }
 *     }
 *     QVDirClose(folder);
 *
 * One thread at a time may use a QVDir. Results that are not listed: QV_E_FILE_NOT_FOUND for a
 * missing folder, E_ACCESSDENIED, E_OUTOFMEMORY, and E_FAIL for all else, as too many open files, a
 * name that is too long or impossible, or a file in a folder's place.
 */
#ifndef QVCORE6_DIRECTORY_H
#define QVCORE6_DIRECTORY_H

#include <qvcore6/base.h>

/* An open folder; QV_DIR_NONE (all bits set) stands for none. */
typedef struct QVDirTag* QVDir;
#define QV_DIR_NONE QV_NO_HANDLE_(QVDir)

/* Set in the mode of a folder, as S_IFDIR of POSIX. */
#define QV_DIR_MODE_DIRECTORY 0x4000u

typedef struct QVDirEntry
{
    QVWChar m_name[260];     /* followed by zeros */
    QVWChar m_shortName[14]; /* empty */
    uint32_t m_mode;     /* 0666, or 0444 for what is read-only; 040666 and 040444 for folders */
    uint32_t m_sizeHigh; /* the size in bytes, high and low half; 0 for a folder */
    uint32_t m_sizeLow;
    int32_t m_creationTime; /* each in seconds since 1970: 0 for a time that no calendar shows, */
    int32_t m_accessTime;   /* -1 for one before 1970 or after 2038-01-18 */
    int32_t m_writeTime;
} QVDirEntry;

QV_BEGIN_DECLS

/*
 * Opens the folder that the path names; separators at its end do not count, and the empty path is
 * the root. A path that ends in a colon is taken as the start of the names that are wanted.
 * *dirOut is QV_DIR_NONE after a failure. S_OK.
 */
QV_EXPORT QVRESULT QVDirOpen(const QVWChar* path, QVDir* dirOut);

/*
 * Fills in the next entry. A link counts as what it leads to, if that is there. Times are taken as
 * local time now would show them, with the zone as it was within the last second; an entry of a
 * time in the other half of the daylight year is as QVTimeToPosix has it. reserved has no effect.
 * S_OK; E_FAIL at the end, and again and again after it: take any failure as the end. E_HANDLE for
 * QV_DIR_NONE.
 */
QV_EXPORT QVRESULT QVDirRead(QVDir dir, QVDirEntry* entry, uint32_t reserved);

/* QV_DIR_NONE is let pass. S_OK. */
QV_EXPORT QVRESULT QVDirClose(QVDir dir);

/*
 * Makes a folder, with the rights of the process's umask; mode has no effect.
 * S_OK; QV_E_ALREADY_EXISTS if there is a folder or file of this name.
 */
QV_EXPORT QVRESULT QVDirCreate(const QVWChar* path, uint32_t mode);

/* Removes an empty folder. S_OK; E_FAIL if something is in it; E_ACCESSDENIED if it is read-only.
 */
QV_EXPORT QVRESULT QVDirRemove(const QVWChar* path);

QV_END_DECLS

#endif
