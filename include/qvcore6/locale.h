/*
 * The language and the charset that the environment asks for, as names that ICU and encoding.h
 * take.
 *
 *     QVWChar locale[32];
 *     QVWChar encoding[8];
 *     if (QVGetDefaultLocale(locale, 32) >= 0 && QVGetDefaultCharEncoding(encoding, 8) >= 0) {
 *         // "de_DE" and "UTF-8" under LANG=de_DE.UTF-8
 *     }
 *
 * Both are those of the environment at their first use in the process. Any thread may call both
 * functions at any time.
 */
#ifndef QVCORE6_LOCALE_H
#define QVCORE6_LOCALE_H

#include <qvcore6/base.h>
#include <qvcore6/result.h>

QV_BEGIN_DECLS

/*
 * The locale that LC_ALL, LC_MESSAGES or LANG names, the first that is set: "de_DE" for
 * de_DE@euro. "en_US_POSIX" for C, POSIX and where none is set; "en_US" for one without a number
 * among the platform's (MS-LCID, "Windows Language Code Identifier").
 *
 * The size is in units, with the terminator; the rest of the buffer is filled with zeros. S_OK, or
 * QV_E_BUFFER_TOO_SMALL with the buffer unchanged. A null buffer is allowed with a size of 0.
 */
QV_EXPORT QVRESULT QVGetDefaultLocale(QVWChar* buffer, uint32_t size);

/*
 * The charset of narrow text: "UTF-8", or "CP" and the number of the code page which is most like
 * the charset of the environment's locale ("CP1252" for ISO-8859-1 and in the locale C).
 *
 * The size is in units, with the terminator. S_OK, or QV_E_BUFFER_TOO_SMALL below 8, which holds
 * every name; a null buffer is allowed with that.
 */
QV_EXPORT QVRESULT QVGetDefaultCharEncoding(QVWChar* buffer, int32_t size);

QV_END_DECLS

#endif
