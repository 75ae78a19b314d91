/*
 * Shared memory: named blocks of memory that processes share.
 *
 * QVSharedMemOpen creates or opens the block of a name, QVSharedMemAttach maps it into this process
 * as a view, as often as one likes. The first that creates a block sets its size, and its bytes are
 * 0 then; every user of the machine may open it. It lives until its last handle and last view are
 * gone, in all processes and however these end. A view outlives its handle. Who creates the name
 * afterwards gets a new block.
 *
 * Guaranteed: of several that create a name at once, one gets QV_S_CREATED, and the others the same
 * block. Memory for the whole block is there when it has been created, so that no later write fails
 * for want of it. Different names never reach one block. What is written is seen as fast as within
 * a process; there is no lock with it: use atomic operations, or a named semaphore.
 *
 *     QVHandle handle;
 *     void* view;
 *     if (QVSharedMemOpen("counters", QV_FILE_READ | QV_FILE_WRITE | QV_FILE_CREATE, 0, 4096,
 *                         &handle) < 0) {
 *         return;
 *     }
 *     if (QVSharedMemAttach(handle, QV_FILE_READ | QV_FILE_WRITE, &view) >= 0) {
 *         QVAtomicIncrement((int32_t*)view);
 *         QVSharedMemDetach(view);
 *     }
 *     QVSharedMemClose(handle);
 *
 * Any thread may call any function; a close by another thread meanwhile gives E_HANDLE and nothing
 * worse. A forked child shares handles and views, and holds what its parent held. Whoever may open
 * a block can also spoil it: a process that cuts its file under a view ends the others by a signal.
 */
#ifndef QVCORE6_SHAREDMEM_H
#define QVCORE6_SHAREDMEM_H

#include <qvcore6/file.h>

QV_BEGIN_DECLS

/*
 * Opens the block of a name, text in the process's charset, case being kept.
 *
 * flags, from <qvcore6/file.h>: with QV_FILE_CREATE, QV_FILE_EXCLUSIVE or both it creates the block
 * if there is none, size bytes of up to 4 GiB less 1, and the handle is for reading and writing;
 * with both, it does not open an existing one. Without them it opens an existing block, for writing
 * if QV_FILE_WRITE is there, else for reading. Other flags and mode have no effect. An existing
 * block keeps its size, which the handle does not tell.
 *
 * QV_S_CREATED: the block is new; or it was opened without the two flags, when there is nothing to
 * tell apart. S_OK: it was there. *handleOut is QV_HANDLE_NONE after a failure:
 * QV_E_FILE_NOT_FOUND if there is none, and for a name with a backslash; E_FAIL for an existing
 * block with both flags, for a name of more than 256 UTF-16 units, for a size of 0 where one is
 * created, also if it exists, and if the system refuses, as when there is no memory left for
 * blocks, or the process is ending; E_ACCESSDENIED if it belongs to somebody who does not share it,
 * or a process that has stopped in the middle of opening it keeps it for ten seconds; E_HANDLE if
 * the name is taken by what is no block; E_INVALIDARG for a null name; E_OUTOFMEMORY.
 */
QV_EXPORT QVRESULT QVSharedMemOpen(const char* name, uint32_t flags, uint32_t mode, uint32_t size,
                                   QVHandle* handleOut);

/*
 * Maps the whole block. flags is exactly QV_FILE_READ, and a write to the view then ends the
 * process by a signal; or QV_FILE_WRITE, alone or with QV_FILE_READ, for reading and writing.
 * *viewOut is the start of a page, and is left alone on failure.
 * S_OK; E_HANDLE for what is no handle of a block; E_ACCESSDENIED for a view to write of a block
 * that was opened for reading; E_FAIL for any other flags; E_OUTOFMEMORY without memory or
 * addresses.
 */
QV_EXPORT QVRESULT QVSharedMemAttach(QVHandle handle, uint32_t flags, void** viewOut);

/* Unmaps a view. S_OK; E_FAIL for what is not the start of one. */
QV_EXPORT QVRESULT QVSharedMemDetach(const void* view);

/* The same as QVFileClose. S_OK; E_HANDLE. Views stay. */
QV_EXPORT QVRESULT QVSharedMemClose(QVHandle handle);

QV_END_DECLS

#endif
