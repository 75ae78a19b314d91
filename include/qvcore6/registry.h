/*
 * The registry: a tree of keys with typed values that all processes of the machine share.
 *
 * A key is named by a root and a path of components separated by '\'; the empty path is the root
 * itself. A leading '\' and an empty component are refused, '/' has no meaning. A value is named by
 * a key and a name; the empty name is the key's default value. Names compare without case and keep
 * the form in which they were first written: up to 255 units for a component, 16,383 for a value.
 *
 *     QVWChar path[260];
 *     uint32_t type;
 *     uint32_t size = sizeof path;
 *     QVRESULT result = QVRegistryGetValue(QV_HKEY_CONFIG, u"Software\\Acme", u"DataPath", &type,
 *                                          path, &size);
 *     if (result == QV_E_FILE_NOT_FOUND) {
 *         static const QVWChar fallback[] = u"/srv/acme";
 *         result = QVRegistrySetValue(QV_HKEY_CONFIG, u"Software\\Acme", u"DataPath",
 *                                     QV_REGTYPE_STRING, fallback, sizeof fallback);
 *     }
 *
 * A value is written, read and deleted atomically; setting one first makes its key, in a change of
 * its own. What a call has written survives the end of the process, however that comes; a crash of
 * the system may undo the last change. Readers wait for nobody, writers of all processes take
 * turns. Any thread may call any function; an enumeration handle is for one thread at a time. A
 * forked child may call everything and go on with enumeration handles that it inherited.
 *
 * Codes that every function may give: E_ACCESSDENIED for what this user may not do, E_HANDLE for a
 * root that does not exist, E_OUTOFMEMORY, and E_FAIL for a full disk, a foreign or damaged store
 * (which is left as it is), and a malformed path. Exceptions stand with the function.
 */
#ifndef QVCORE6_REGISTRY_H
#define QVCORE6_REGISTRY_H

#include <qvcore6/base.h>
#include <qvcore6/result.h>

/*
 * Roots. Those without _64 are the view of 32-bit programs where a process runs as one on a 64-bit
 * system; elsewhere both are the same keys. The user's keys have one view. The values 0x80000000
 * (classes), 0x80000001 (user) and 0x80000002 (machine) stand for the native roots without a view.
 */
#define QV_HKEY_CLASSES UINT32_C(0)
#define QV_HKEY_CONFIG UINT32_C(1)
#define QV_HKEY_USER UINT32_C(2)
#define QV_HKEY_CLASSES_64 UINT32_C(3)
#define QV_HKEY_CONFIG_64 UINT32_C(4)

/* Types of values. */
#define QV_REGTYPE_STRING UINT32_C(0)        /* text with its terminator */
#define QV_REGTYPE_DWORD UINT32_C(1)         /* 32-bit number */
#define QV_REGTYPE_QWORD UINT32_C(2)         /* 64-bit number; can be read, not written */
#define QV_REGTYPE_BINARY UINT32_C(3)        /* bytes */
#define QV_REGTYPE_EXPAND_STRING UINT32_C(4) /* text with %NAME%; reads back as a string */
#define QV_REGTYPE_MULTI_STRING UINT32_C(5)  /* texts, each with its terminator, and one more */

/* Stores of the whole configuration, for QVRegistryMigrate. */
#define QV_STORE_NATIVE UINT32_C(0) /* what all other functions here work on */
#define QV_STORE_INI UINT32_C(1)    /* the text file "qvregistry.ini" in the current folder */

/* An enumeration; QV_REG_ENUM_NONE (all bits set) stands for none. */
typedef struct QVRegEnumTag* QVRegEnum;
#define QV_REG_ENUM_NONE QV_NO_HANDLE_(QVRegEnum)

QV_BEGIN_DECLS

/*
 * Begins to enumerate a key's sub-keys. *handleOut is QV_REG_ENUM_NONE after a failure.
 * S_OK; E_FAIL for every failure to open the key, a missing one too; E_OUTOFMEMORY for the handle.
 */
QV_EXPORT QVRESULT QVRegistryOpenKeyEnum(uint32_t root, const QVWChar* keyPath,
                                         QVRegEnum* handleOut);

/*
 * Begins to enumerate a key's values. *handleOut is QV_REG_ENUM_NONE after a failure.
 * S_OK; QV_E_FILE_NOT_FOUND if there is no such key.
 */
QV_EXPORT QVRESULT QVRegistryOpenValueEnum(uint32_t root, const QVWChar* keyPath,
                                           QVRegEnum* handleOut);

/*
 * The name of the next sub-key. *nameSize is the capacity in units with the terminator going in,
 * and the length without it coming out. Each call moves on by one, also one that fails: a name that
 * does not fit is skipped. The order is that of the names in upper case. A tree that changes
 * meanwhile moves the indices. S_OK; E_FAIL at the end, and if the name does not fit (*nameSize is
 * then as before).
 */
QV_EXPORT QVRESULT QVRegistryEnumNextKey(QVRegEnum handle, QVWChar* name, uint32_t* nameSize);

/*
 * The next value, like QVRegistryEnumNextKey. *dataSize is in bytes: capacity in, length out.
 * typeOut, data and dataSize may each be null, but data not without dataSize (E_FAIL). No text is
 * expanded. The type is given also when the data do not fit; for a native type without a code here,
 * and REG_NONE and REG_QWORD, *typeOut stays as it was.
 * S_OK; E_FAIL at the end, and if the name or the data do not fit. In the last case *dataSize is
 * the size that is needed.
 */
QV_EXPORT QVRESULT QVRegistryEnumNextValue(QVRegEnum handle, QVWChar* name, uint32_t* nameSize,
                                           uint32_t* typeOut, void* data, uint32_t* dataSize);

/* Ends an enumeration. Null does nothing; QV_REG_ENUM_NONE must not be passed. S_OK. */
QV_EXPORT QVRESULT QVRegistryCloseEnum(QVRegEnum handle);

/*
 * Reads a value. *dataSize is in bytes: the capacity going in, the length coming out. A null data
 * asks for type and length alone; typeOut and dataSize may be null, but data not without dataSize
 * (E_FAIL). The bytes come as they were written: a text has a terminator only if its writer counted
 * one. A native type without a code here is given as its native number.
 *
 * A text with references to the environment comes expanded and always terminated, and *dataSize is
 * the size of the expanded text. With null data, and if the text does not fit, *dataSize is enough
 * for both forms of it, so that a second call with that much room succeeds.
 * S_OK; QV_E_FILE_NOT_FOUND for a missing key or value; E_FAIL if the data do not fit: *dataSize is
 * then the size that is needed, *typeOut the native number of the type (a text that only its
 * expansion made too long: QV_REGTYPE_STRING, and data holds an empty text).
 */
QV_EXPORT QVRESULT QVRegistryGetValue(uint32_t root, const QVWChar* keyPath,
                                      const QVWChar* valueName, uint32_t* typeOut, void* data,
                                      uint32_t* dataSize);

/*
 * Writes a value, with all levels of the key that are missing. The size is in bytes; the terminator
 * of a text is the caller's to count.
 * S_OK; E_INVALIDARG for QV_REGTYPE_QWORD and for what is no type.
 */
QV_EXPORT QVRESULT QVRegistrySetValue(uint32_t root, const QVWChar* keyPath,
                                      const QVWChar* valueName, uint32_t type, const void* data,
                                      uint32_t size);

/* Deletes a value. S_OK; QV_E_FILE_NOT_FOUND for a missing key or value. */
QV_EXPORT QVRESULT QVRegistryDeleteValue(uint32_t root, const QVWChar* keyPath,
                                         const QVWChar* valueName);

/*
 * Deletes a key and everything under it, key by key: a failure leaves a part of the tree. A root
 * itself stays, emptied.
 * 0; E_FAIL for a key that is missing or cannot be opened, and for a null path; E_OUTOFMEMORY. A
 * key that cannot be deleted gives a positive number, error numbers of the platform or-ed together:
 * test for 0, not for the sign.
 */
QV_EXPORT QVRESULT QVRegistryDeleteKey(uint32_t root, const QVWChar* keyPath);

/*
 * Copies the configuration of all roots from one store to the other; both may be the same. Of the
 * user's root only the calling user's part is seen in the ini file. reserved1 and reserved2 have no
 * effect.
 *
 * Values of the same name are overwritten, and nothing else is deleted in either store, but that
 * the ini file goes after all of it has been moved. Into the ini file only texts are carried,
 * expanded ones as they are expanded now. A value stays behind, without a report, if it has more
 * than 2,048 bytes, or a type that the target does not take, or cannot be read or written; so do
 * names of 256 units and more, with what comes after them in their key. A key without values leaves
 * no trace. The ini file also stays if a part of it could not be read; docs/guarantees.md says when
 * that is.
 *
 * Other threads and processes may use both stores meanwhile: what they change is copied or not.
 * S_OK; 0x80004007 (QV_E_UNKNOWN_STORE_KIND) for another kind of store; E_ACCESSDENIED while
 * another migration of this process runs; E_OUTOFMEMORY; or the code of what stopped the walk: what
 * was copied until then is in the target, and the ini file is still there.
 */
QV_EXPORT QVRESULT QVRegistryMigrate(uint32_t fromKind, uint32_t reserved1, uint32_t toKind,
                                     uint32_t reserved2);

QV_END_DECLS

#endif
