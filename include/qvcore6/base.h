/*
 * Basic types of the qvcore6 interface.
 *
 * Every header of the library compiles as C11 and as C++17. Exported functions have C linkage and
 * take and return plain types only.
 */
#ifndef QVCORE6_BASE_H
#define QVCORE6_BASE_H

#include <stddef.h>
#include <stdint.h>

#ifndef __cplusplus
#include <uchar.h>
#endif

/* Marks a name that the shared library exports. */
#define QV_EXPORT __attribute__((visibility("default")))

#ifdef __cplusplus
#define QV_BEGIN_DECLS                                                                             \
    extern "C"                                                                                     \
    {
#define QV_END_DECLS }
#else
#define QV_BEGIN_DECLS
#define QV_END_DECLS
#endif

/* All bits set: what stands for no handle. */
#ifdef __cplusplus
#define QV_NO_HANDLE_(type) (reinterpret_cast<type>(static_cast<intptr_t>(-1)))
#else
#define QV_NO_HANDLE_(type) ((type)(intptr_t)-1)
#endif

/* Result of an operation that can fail: negative is failure, zero and above is success. */
typedef int32_t QVRESULT;

/* One 16-bit unit of UTF-16 text; the same unit as ICU's UChar, so u"..." is a literal of it. */
typedef char16_t QVWChar;

/*
 * A handle of the system: a file, a pipe, shared memory or a child process, as a file descriptor of
 * this process. It works with the system's own calls, and a caller's own descriptors work here.
 * Give it back by the function that its header names, so that what belongs to it goes as well.
 */
typedef int32_t QVHandle;
#define QV_HANDLE_NONE (-1)

#endif
