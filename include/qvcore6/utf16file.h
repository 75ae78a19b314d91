/*
 * Text files in UTF-16, line by line.
 *
 *     struct UFILE* file = QVFileOpenUTF16("names.txt", "r");
 *     QVWChar line[256];
 *     while (file != NULL && QVFileGetLineUTF16(line, 256, file) != NULL) {
 *         Use(line);
 *     }
 *     QVFileCloseUTF16(file);
 *
 * A file is a UFILE of ICU, and ICU's own functions (unicode/ustdio.h) work on it. For reading, a
 * byte order mark at its start selects the order and is no part of the text; without one ICU takes
 * the more significant byte first. Writing puts a mark in front of the first text that is written,
 * also in front of what is added to a file that has one.
 *
 * A file is for one thread at a time.
 */
#ifndef QVCORE6_UTF16FILE_H
#define QVCORE6_UTF16FILE_H

#include <qvcore6/base.h>

QV_BEGIN_DECLS

struct UFILE;

/*
 * Path and mode as for fopen; a program that the process starts does not get the file. Null if
 * there is no such file, no permission, no memory, or an argument is null.
 */
QV_EXPORT struct UFILE* QVFileOpenUTF16(const char* path, const char* mode);

/* Writes what is left, and closes. Null does nothing. */
QV_EXPORT void QVFileCloseUTF16(struct UFILE* file);

/*
 * The next line without its CR, LF or CR LF. A line also ends behind U+000B, U+000C, U+0085, U+2028
 * and U+2029, which stay at its end. The size is in units, with the terminator: a line of more
 * comes in pieces, and nothing tells a piece from a line. Size 1 gives an empty text while there is
 * any, and reads nothing.
 *
 * Gives the buffer; null at the end of the file, for a size below 1, or if an argument is null.
 */
QV_EXPORT QVWChar* QVFileGetLineUTF16(QVWChar* buffer, int32_t size, struct UFILE* file);

/*
 * Writes the line, which is terminated, and CR LF. Gives the number of units with those two; less,
 * or more than reached the file, when writing fails. 0 if an argument is null.
 */
QV_EXPORT int32_t QVFileWriteLineUTF16(const QVWChar* line, struct UFILE* file);

QV_END_DECLS

#endif
