/*
 * Result codes.
 *
 * A QVRESULT has the layout of an HRESULT: the sign bit is the failure flag. Test the sign, and
 * compare with a code only to single out one particular case:
 *
 *     QVRESULT result = QVMutexCreate("jobs", 0, &mutex);
 *     if (result < 0) {
 *         return result;
 *     }
 *
 * The values are part of the library's interface and do not change. Results of foreign objects
 * (class factories, objects, a component's DllGetClassObject) are passed on unchanged and may lie
 * outside this list.
 */
#ifndef QVCORE6_RESULT_H
#define QVCORE6_RESULT_H

#include <qvcore6/base.h>

/* The values that a failure code has as an unsigned number, turned into QVRESULT. */
#ifdef __cplusplus
#define QV_RESULT_(value) (static_cast<QVRESULT>(value))
#else
#define QV_RESULT_(value) ((QVRESULT)(value))
#endif

/* Success. */
#define S_OK QV_RESULT_(0x00000000)
/* Success, and the object did not exist before this call. */
#define QV_S_CREATED QV_RESULT_(0x00000002)
/* The operation does not exist in this setting. */
#define E_NOTIMPL QV_RESULT_(0x80004001)
/* The pointer handed in is not a live heap block. */
#define E_POINTER QV_RESULT_(0x80004003)
/* The stop callbacks of a converter could not be set. */
#define E_ABORT QV_RESULT_(0x80004004)
/* Unspecified failure; also a try-operation that did not get what it asked for. */
#define E_FAIL QV_RESULT_(0x80004005)
/* The calling module is not marked as initialised. */
#define QV_E_NOT_INITIALIZED QV_RESULT_(0x80004006)
/* A configuration store kind that does not exist. */
#define QV_E_UNKNOWN_STORE_KIND QV_RESULT_(0x80004007)
/* The caller's output buffer is too small; the output is truncated or absent. */
#define QV_E_BUFFER_TOO_SMALL QV_RESULT_(0x80004009)
/* No class is registered under this identifier. */
#define REGDB_E_CLASSNOTREG QV_RESULT_(0x80040154)
/* A file, key or value does not exist. */
#define QV_E_FILE_NOT_FOUND QV_RESULT_(0x80070002)
/* Access refused. */
#define E_ACCESSDENIED QV_RESULT_(0x80070005)
/* The handle names nothing. */
#define E_HANDLE QV_RESULT_(0x80070006)
/* Memory exhausted. */
#define E_OUTOFMEMORY QV_RESULT_(0x8007000E)
/* End of a file or of an enumeration. */
#define QV_E_END_OF_DATA QV_RESULT_(0x80070026)
/* An argument is malformed. */
#define E_INVALIDARG QV_RESULT_(0x80070057)
/* The object already exists. */
#define QV_E_ALREADY_EXISTS QV_RESULT_(0x800700B7)
/* A timed wait ran out. */
#define QV_E_TIMEOUT QV_RESULT_(0x800705B4)
/* A character that the conversion cannot carry. */
#define QV_E_INVALID_CHAR QV_RESULT_(0x8BB34101)
/* The conversion handle has no converter for this direction. */
#define QV_E_CONVERTER_NOT_OPEN QV_RESULT_(0x8BB34103)

QV_BEGIN_DECLS

/*
 * The result code for an error number of the platform layer: 0, 2, 3, 5, 6, 14, 32, 183 and 258 are
 * told apart from the rest, which is E_FAIL. None is widened into HRESULT form.
 * The numbers are those of the Win32 system error codes.
 * Callable at any time and from any thread.
 */
QV_EXPORT QVRESULT QVResultFromNative(uint32_t nativeError);

QV_END_DECLS

#endif
