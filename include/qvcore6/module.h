/*
 * Shared libraries, and the gate on a component's state.
 *
 * QVLib* opens shared libraries and finds symbols in them. QVModule* does the same on behalf of a
 * component, a "module", that says by QVModuleSetInitialized whether it is up: while it is not, the
 * calls are refused before anything else happens, so that a component in the middle of its own
 * unload makes no trip into the loader. A module's identity is a number that the component chooses
 * (the low half of the address of one of its functions serves well); only equality counts.
 *
 *     QVLibrary library;
 *     void* symbol;
 *     if (QVLibOpen(u"/opt/plugins/filter.so", &library) < 0) {
 *         return;
 *     }
 *     if (QVLibGetSymbol(library, u"FilterVersion", &symbol) >= 0) {
 *         uint32_t (*version)(void);
 *         memcpy(&version, &symbol, sizeof version);
 *         printf("filter version %u\n", (unsigned)version());
 *     }
 *     QVLibClose(library);
 *
 * Any thread may call any function. The gate is a snapshot: a module may be marked as down while a
 * call that passed the gate is still running, and nobody waits for such a call.
 */
#ifndef QVCORE6_MODULE_H
#define QVCORE6_MODULE_H

#include <qvcore6/base.h>
#include <qvcore6/component.h>

/* An open shared library; QV_LIBRARY_NONE (all bits set) stands for none. */
typedef struct QVLibraryTag* QVLibrary;
#define QV_LIBRARY_NONE QV_NO_HANDLE_(QVLibrary)

QV_BEGIN_DECLS

/*
 * Opens a library and runs its load routines; each open is undone by one QVLibClose. A path with a
 * '/' or '\' names a file. A bare name is looked for where the system's loader looks, then in the
 * current directory. "x.dll" that is not there stands for "x.so", then for "libx.so". A symbol that
 * the library needs and nobody has fails here, not later. *libraryOut is QV_LIBRARY_NONE after a
 * failure.
 * S_OK; E_FAIL if the library is not there or cannot be loaded; E_ACCESSDENIED if the file may not
 * be read; E_OUTOFMEMORY.
 */
QV_EXPORT QVRESULT QVLibOpen(const QVWChar* path, QVLibrary* libraryOut);

/*
 * Gives one open back; the last one unloads the library.
 * S_OK; E_FAIL for what is no open library.
 */
QV_EXPORT QVRESULT QVLibClose(QVLibrary library);

/*
 * The address of a function or object that the library itself exports; what it merely links is not
 * found. The name is converted to the ANSI code page. *symbolOut is null after a failure.
 * S_OK; E_FAIL if there is no such symbol; E_HANDLE for what is no open library; E_OUTOFMEMORY.
 */
QV_EXPORT QVRESULT QVLibGetSymbol(QVLibrary library, const QVWChar* name, void** symbolOut);

/*
 * Marks a module as up (initialized is not 0) or down. There is no count: one call undoes any
 * number of the other kind, and repeating a mark does nothing. Every module starts as down.
 * S_OK; E_OUTOFMEMORY; E_FAIL if the library could not start in this process.
 */
QV_EXPORT QVRESULT QVModuleSetInitialized(uint32_t module, int16_t initialized);

/*
 * QVLibOpen, QVLibClose, QVComGetClassObject and QVComCreateObject on behalf of a module.
 * QV_E_NOT_INITIALIZED while the module is down, with the output left as it was; otherwise the
 * result of the function behind the gate.
 */
QV_EXPORT QVRESULT QVModuleLibOpen(uint32_t module, const QVWChar* path, QVLibrary* libraryOut);
QV_EXPORT QVRESULT QVModuleLibClose(uint32_t module, QVLibrary library);
QV_EXPORT QVRESULT QVModuleComGetClassObject(uint32_t module, const GUID* clsid, const GUID* iid,
                                             void** objectOut);
QV_EXPORT QVRESULT QVModuleComCreateObject(uint32_t module, const GUID* clsid, IQVUnknown* outer,
                                           const GUID* iid, void** objectOut);

QV_END_DECLS

#endif
