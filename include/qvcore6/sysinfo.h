/*
 * The machine and the user that a process runs on and as.
 *
 *     QVSystemInfo info;
 *     if (QVGetSystemInfo(&info, 0) >= 0) {
 *         workers = info.processorCount;
 *         cacheBytes = info.availablePhysicalMemory / 8;
 *     }
 *
 * Any thread may call both functions at any time. Null arguments are undefined behaviour, but for
 * the buffer of QVGetUserName.
 */
#ifndef QVCORE6_SYSINFO_H
#define QVCORE6_SYSINFO_H

#include <qvcore6/base.h>
#include <qvcore6/result.h>

typedef struct QVSystemInfo
{
    uint64_t totalPhysicalMemory;     /* bytes */
    uint64_t availablePhysicalMemory; /* bytes that new programs get without swapping */
    uint64_t totalVirtualMemory;      /* bytes of addresses, or the process's limit (RLIMIT_AS) */
    uint64_t availableVirtualMemory;  /* bytes of them that are not mapped yet */
    uint32_t allocationGranularity;   /* bytes; what the address of a mapping is a multiple of */
    uint32_t pageSize;                /* bytes */
    uint16_t processorType;           /* 8664 for x86-64, 0 for any other */
    uint16_t processorLevel;          /* family, as the instruction cpuid has it; 0 elsewhere */
    uint16_t processorRevision;       /* model << 8 | stepping, from there too; 0 elsewhere */
    uint16_t processorCount;          /* that are online */
    uint16_t platformId;              /* 2 */
    uint16_t reserved;                /* 0 */
    uint16_t majorVersion;            /* these three: the kernel's release */
    uint16_t minorVersion;
    uint16_t buildNumber;
} QVSystemInfo;

QV_BEGIN_DECLS

/*
 * Fills the record with the state of now. reserved is ignored. S_OK; what the system does not tell
 * is 0. If the system's version could not be had, the code of that failure, and the fields from
 * platformId on are left as they were.
 */
QV_EXPORT QVRESULT QVGetSystemInfo(QVSystemInfo* info, int32_t reserved);

/*
 * The name of the user as whom the process acts (its effective user), or the user's number in
 * decimal if there is no name for it. size is the room at buffer in units, with the terminator;
 * 33 hold every name that useradd(8) allows. S_OK; E_FAIL if the name does not fit, and nothing is
 * written then; E_OUTOFMEMORY; E_FAIL and E_ACCESSDENIED as well where the users' data base cannot
 * be read.
 */
QV_EXPORT QVRESULT QVGetUserName(QVWChar* buffer, uint32_t size);

QV_END_DECLS

#endif
