/*
 * Files.
 */
#ifndef QVCORE6_FILE_H
#define QVCORE6_FILE_H

#include <qvcore6/base.h>

/* Open flags. The two access rights have the platform's values, GENERIC_READ and GENERIC_WRITE. */
#define QV_FILE_READ 0x80000000u
#define QV_FILE_WRITE 0x40000000u
#define QV_FILE_APPEND 0x00000008u
#define QV_FILE_TEMPORARY 0x00000040u
#define QV_FILE_CREATE 0x00000100u
#define QV_FILE_TRUNCATE 0x00000200u
#define QV_FILE_EXCLUSIVE 0x00000400u
#define QV_FILE_WRITE_THROUGH 0x00001000u

/* Where a seek starts from: FILE_BEGIN, FILE_CURRENT and FILE_END of the platform. */
#define QV_SEEK_BEGIN 0u
#define QV_SEEK_CURRENT 1u
#define QV_SEEK_END 2u

/* How a byte range is locked. */
#define QV_LOCK_SHARED 1u
#define QV_LOCK_WAIT 2u

#endif
