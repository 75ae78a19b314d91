/*
 * Memory and the lowest helpers: heap, atomic words, byte order, unaligned access, counters.
 *
 * Every function stands by itself: no state, no lock, no exception, callable from any thread.
 * Sizes are in bytes, as unsigned 32-bit counts. A block from QVMalloc, QVCalloc, QVRealloc or
 * QVRecalloc goes back through QVFree, and never to free() or QVComFree(). A pointer that is no
 * live block is noticed, as far as told below, by the bytes before it: these must be there to be
 * read.
 *
 *     void* block;
 *     if (QVMalloc(100, &block) < 0) {
 *         return;
 *     }
 *     if (QVRecalloc(&block, 200) >= 0) {
 *         assert(QVMallocSize(block) == 200);
 *     }
 *     QVFree(block);
 */
#ifndef QVCORE6_MEMORY_H
#define QVCORE6_MEMORY_H

#include <qvcore6/base.h>

QV_BEGIN_DECLS

/*
 * Allocates size bytes; 0 gives a valid block of no bytes. Contents are undefined, alignment fits
 * every type. *blockOut is null after a failure.
 * S_OK; E_OUTOFMEMORY.
 */
QV_EXPORT QVRESULT QVMalloc(uint32_t size, void** blockOut);

/*
 * Allocates count * size zeroed bytes. *blockOut is null after a failure.
 * S_OK; E_OUTOFMEMORY, also for a product above 4,294,967,295 bytes.
 */
QV_EXPORT QVRESULT QVCalloc(uint32_t count, uint32_t size, void** blockOut);

/*
 * Resizes *block, which may move. The first bytes are kept, new ones are undefined. A null *block
 * allocates; size 0 frees a live block and stores null.
 * S_OK; E_OUTOFMEMORY, also for what is noticed to be no live block and a size above 0, with *block
 * and its bytes as they were.
 */
QV_EXPORT QVRESULT QVRealloc(void** block, uint32_t size);

/*
 * Like QVRealloc with new bytes zeroed. A null *block gives a zeroed block, of no bytes for size 0.
 * S_OK; E_OUTOFMEMORY; E_POINTER if *block is noticed to be no live block, or a block of no bytes,
 * and size is not 0. After a failure *block is as it was.
 */
QV_EXPORT QVRESULT QVRecalloc(void** block, uint32_t size);

/* Frees a block; null is allowed, and what is noticed to be no live block is left alone. S_OK. */
QV_EXPORT QVRESULT QVFree(void* block);

/* The block's size as it was asked for; 0 for null and for what is noticed to be no live block. */
QV_EXPORT uint32_t QVMallocSize(const void* block);

/* size rounded up to a multiple of 4; wraps to 0 above 0xFFFFFFFC. */
QV_EXPORT uint32_t QVGetAlignedSize(uint32_t size);

/*
 * Atomic operations on an aligned word. Each is a full barrier (sequentially consistent) and wraps
 * around without a fault.
 */

/* Adds 1 and gives the new value. */
QV_EXPORT int32_t QVAtomicIncrement(volatile int32_t* word);
/* Subtracts 1 and gives the new value. */
QV_EXPORT int32_t QVAtomicDecrement(volatile int32_t* word);
/* Gives the new value. */
QV_EXPORT int32_t QVAtomicAdd32(volatile int32_t* word, int32_t addend);
/* The same on a word of pointer size. */
QV_EXPORT intptr_t QVAtomicAddSZ(volatile intptr_t* word, intptr_t addend);
/* Stores value and gives the old one. */
QV_EXPORT int32_t QVAtomicExchange(volatile int32_t* word, int32_t value);
/* Stores exchange if the word equals comparand; gives the old value in either case. */
QV_EXPORT int32_t QVAtomicCompareExchange(volatile int32_t* word, int32_t exchange,
                                          int32_t comparand);

/* The value with its bytes in reversed order. */
QV_EXPORT uint16_t QVSwapInt16(uint16_t value);
QV_EXPORT uint32_t QVSwapInt32(uint32_t value);
QV_EXPORT uint64_t QVSwapInt64(uint64_t value);

/* Reads in the machine's byte order, at any address. */
QV_EXPORT uint16_t QVGetUnalignedInt16(const void* address);
QV_EXPORT uint32_t QVGetUnalignedInt32(const void* address);
QV_EXPORT uint64_t QVGetUnalignedInt64(const void* address);

/* Writes in the machine's byte order, at any address. */
QV_EXPORT void QVPutUnalignedInt16(void* address, uint16_t value);
QV_EXPORT void QVPutUnalignedInt32(void* address, uint32_t value);
QV_EXPORT void QVPutUnalignedInt64(void* address, uint64_t value);

/* The performance counter: monotonic, in QVPerfGetFreq() ticks a second. */
QV_EXPORT uint64_t QVPerfGetCount(void);

/* Ticks a second of QVPerfGetCount; the same for the life of the process. */
QV_EXPORT uint64_t QVPerfGetFreq(void);

/* Milliseconds since the system's start, sleep included; wraps after about 49.7 days. */
QV_EXPORT uint32_t QVPerfGetCountMS(void);

/*
 * Breaks into the debugger, and returns if that lets it go on. With no debugger the process dies
 * of SIGTRAP.
 */
QV_EXPORT void QVDebugBreak(void);

QV_END_DECLS

#endif
