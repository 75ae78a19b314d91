/*
 * Files: open, read, write, seek, lock ranges, copy; pipes as far as they can.
 *
 * A file is a QVHandle, a file descriptor of the process. Any descriptor will do, a caller's own as
 * well; what this header opens is closed by QVFileClose. Paths are wide text in which / and \ both
 * separate. A file name that is not UTF-8 has units from 0xDC80 to 0xDCFF for its stray bytes, and
 * 0xDC5C for a \ of its own, as QVDirRead gives them, and is opened by that text; a path that
 * spells another name's bytes in this way is refused, so that each file has one name.
 *
 *     QVHandle log;
 *     uint32_t written;
 *     uint32_t flags = QV_FILE_WRITE | QV_FILE_CREATE | QV_FILE_APPEND;
 *     if (QVFileOpen(u"service.log", flags, 0644, &log) < 0) {
 *         return;
 *     }
 *     QVFileWrite(log, "started\n", 8, &written);
 *     QVFileClose(log);
 *
 * Guaranteed: a signal that comes while a call waits does not end it, and a write to a pipe that
 * nobody reads is a failure and no signal. No descriptor that is opened here reaches a program that
 * the process executes, or is one of the three standard numbers. No function is a cancellation
 * point but QVFileRead, and QVFileCopy while it reads; a wait for a lock is none.
 *
 * Any thread may call any function. Threads that use one handle share its position. Opening a FIFO
 * waits for its other end.
 *
 * Wherever no other codes are listed a function answers S_OK, or for a failure of the system:
 * QV_E_FILE_NOT_FOUND for a missing file or folder, E_ACCESSDENIED, E_HANDLE for what is no open
 * descriptor, E_OUTOFMEMORY, and E_FAIL for all else: a full disk, too many open files, a name that
 * is too long or impossible, a bad argument.
 */
#ifndef QVCORE6_FILE_H
#define QVCORE6_FILE_H

#include <qvcore6/base.h>

/* Open flags. The two access rights have the values of GENERIC_READ and GENERIC_WRITE. */
#define QV_FILE_READ 0x80000000u
#define QV_FILE_WRITE 0x40000000u
/* After opening the position is at the end of the file. Once: later writes go where it is then. */
#define QV_FILE_APPEND 0x00000008u
/* The file's name goes when the handle is closed, its content with the last handle of any kind. */
#define QV_FILE_TEMPORARY 0x00000040u
/* Make the file if it is missing. */
#define QV_FILE_CREATE 0x00000100u
/* Empty the file. Without QV_FILE_CREATE it needs QV_FILE_WRITE. */
#define QV_FILE_TRUNCATE 0x00000200u
/* With QV_FILE_CREATE: fail if the file exists. Not without it. */
#define QV_FILE_EXCLUSIVE 0x00000400u
/* Writes return when the data are on the disk. */
#define QV_FILE_WRITE_THROUGH 0x00001000u

/* Where a seek starts from: the values of FILE_BEGIN, FILE_CURRENT and FILE_END. */
#define QV_SEEK_BEGIN 0u
#define QV_SEEK_CURRENT 1u
#define QV_SEEK_END 2u

/* Others may lock the range in the same way. Without it nobody else may lock any of it. */
#define QV_LOCK_SHARED 1u
/* Wait until the range is free. Without it fail at once. */
#define QV_LOCK_WAIT 2u

QV_BEGIN_DECLS

/*
 * Opens a file. A path has at most 259 units. A null or empty one is allowed with QV_FILE_TEMPORARY
 * alone: then a file is made in the folder that TMPDIR names, or /tmp, under a new name that starts
 * with "tmp", and the three creation flags are ignored. With QV_FILE_TEMPORARY and a path the file
 * is made if it is missing. A process that is killed leaves the names of its temporary files
 * behind.
 *
 * mode says whether a file that is made is read-only: that it has none of the bits 0222. The rest
 * is up to the process's umask. Whoever makes a read-only file can write it by that handle.
 *
 * *handleOut is QV_HANDLE_NONE after a failure; but if the position cannot be moved to the end, as
 * in a file of 4 GiB or more, it is the open file and the caller's to close.
 *
 * QV_S_CREATED if QV_FILE_CREATE without QV_FILE_EXCLUSIVE has made the file; S_OK; E_ACCESSDENIED
 * also for a folder and for a read-only file that is to be changed; E_FAIL also for a file that
 * exists with QV_FILE_EXCLUSIVE.
 */
QV_EXPORT QVRESULT QVFileOpen(const QVWChar* path, uint32_t flags, uint32_t mode,
                              QVHandle* handleOut);

/*
 * Closes any handle: a file, a pipe, shared memory, a child process. QV_HANDLE_NONE is let pass.
 * The handle is gone also when a write fails that the system had put off.
 */
QV_EXPORT QVRESULT QVFileClose(QVHandle handle);

/* Removes the file's name. E_ACCESSDENIED also for a folder and for a read-only file. */
QV_EXPORT QVRESULT QVFileDelete(const QVWChar* path);

/* The size in bytes, stored on success alone. E_HANDLE for a folder; E_FAIL for a pipe. */
QV_EXPORT QVRESULT QVFileGetSize(QVHandle handle, uint64_t* sizeOut);

/*
 * Reads at most count bytes, and may read fewer. *bytesRead is 0 after a failure.
 * S_OK; QV_E_END_OF_DATA for 0 bytes, at the end of a file or with a count of 0; E_FAIL when nobody
 * can write to the pipe any more; E_ACCESSDENIED without QV_FILE_READ.
 */
QV_EXPORT QVRESULT QVFileRead(QVHandle handle, void* buffer, uint32_t count, uint32_t* bytesRead);

/*
 * Writes count bytes. What could be written in part is a success, and *bytesWritten tells; the next
 * write meets the reason. E_FAIL for a full disk and for a pipe that nobody reads; E_ACCESSDENIED
 * without QV_FILE_WRITE.
 */
QV_EXPORT QVRESULT QVFileWrite(QVHandle handle, const void* buffer, uint32_t count,
                               uint32_t* bytesWritten);

/* Returns when all that was written is on the disk. E_ACCESSDENIED without QV_FILE_WRITE. */
QV_EXPORT QVRESULT QVFileFlush(QVHandle handle);

/*
 * Moves the position by offset bytes from an origin, one of QV_SEEK_..., to below 4 GiB. It may lie
 * behind the end. *positionOut is the new position, or 0xFFFFFFFF after a failure; which is also a
 * position, with S_OK. E_FAIL for a position before the start or beyond 4 GiB, and for a pipe; then
 * nothing has moved.
 */
QV_EXPORT QVRESULT QVFileSeek(QVHandle handle, int32_t offset, uint32_t origin,
                              uint32_t* positionOut);

/* The same without the limit. *positionOut is 0 after a failure. */
QV_EXPORT QVRESULT QVFileSeek64(QVHandle handle, int64_t offset, uint32_t origin,
                                uint64_t* positionOut);

/*
 * Locks length bytes from offset, which need not exist; lockFlags are QV_LOCK_.... Locks hold
 * between handles, also of one process, bind only those who lock as well, and end when the handle
 * is closed; a wait that this happens to ends with E_HANDLE. A range that meets one that this
 * handle has locked is refused at once, unless both are shared. 0 bytes lock nothing. E_FAIL if the
 * range is not free; E_ACCESSDENIED for a file that may be only read, and is to be locked without
 * QV_LOCK_SHARED.
 */
QV_EXPORT QVRESULT QVFileLock(QVHandle handle, uint32_t offset, uint32_t length,
                              uint32_t lockFlags);

/* Unlocks a range that was locked just so by this handle; E_FAIL for any other. */
QV_EXPORT QVRESULT QVFileUnlock(QVHandle handle, uint32_t offset, uint32_t length);

/*
 * Copies a file's bytes from its start to its end. Of a file that grows meanwhile, what has come
 * when the end that it had at first is reached. The target is opened with flags and mode as by
 * QVFileOpen, and QV_FILE_WRITE. handleOut may be null; else the
 * target stays open, its position behind the last byte, and *handleOut is QV_HANDLE_NONE after a
 * failure. A copy that fails leaves what it has written.
 * E_ACCESSDENIED also for a target that is the source and would be emptied or appended to; E_FAIL
 * also for a full disk.
 */
QV_EXPORT QVRESULT QVFileCopy(const QVWChar* source, const QVWChar* target, uint32_t flags,
                              uint32_t mode, QVHandle* handleOut);

/*
 * The path from the root on: with the process's folder in front if need be, and without empty, "."
 * and ".." components. Links are not looked at. The buffer has size units; 260 are enough for any
 * path that QVFileOpen takes. A path that does not fit leaves the buffer as it was, with S_OK:
 * clear its first unit before. E_FAIL for an empty path; QV_E_FILE_NOT_FOUND if the process's
 * folder has been removed.
 */
QV_EXPORT QVRESULT QVPathExpand(const QVWChar* path, QVWChar* buffer, uint32_t size);

QV_END_DECLS

#endif
