/*
 * Text in another charset, by ICU: streams, single texts, and the UTF family.
 *
 * A converter is opened by the charset's name and serves both directions: ToW from the charset to
 * wide text, FromW back. It keeps a character that is split between two calls, and goes on with it
 * in the next. A name that ICU does not know gives ISO-8859-1, and nobody is told; QVEncConvert
 * does the whole at once.
 *
 *     const char* source = "caf\xE9";
 *     const char* const end = source + 4;
 *     QVWChar text[16];
 *     QVWChar* target = text;
 *     QVEncConverter* converter = QVEncToW_Open(u"windows-1252");
 *     QVRESULT result = QVEncToW_Convert(converter, &source, end, &target, text + 16);
 *     if (result >= 0) {
 *         result = QVEncToW_Flush(converter, &target, text + 16); // the stream ends here
 *     }
 *     QVEncToW_Close(converter); // target - text is the number of units
 *
 * What cannot be converted becomes the charset's own substitute, or U+FFFD, unless
 * QVEncToW_SetSubstitutionChar says otherwise.
 *
 * A converter is for one thread at a time; everything else may be called on any thread, once
 * QVEncUtilInit has returned. Names of charsets are those of ICU's alias table
 * (https://unicode-org.github.io/icu/userguide/conversion/converters.html).
 */
#ifndef QVCORE6_ENCODING_H
#define QVCORE6_ENCODING_H

#include <qvcore6/base.h>
#include <qvcore6/result.h>

/* An open converter. */
typedef struct QVEncConverter QVEncConverter;

QV_BEGIN_DECLS

/*
 * Points ICU at the folder of its data, and gives the number of charsets that it knows, 0 or more.
 * Null or an empty text: no folder, as for an ICU whose data is a library. To be called at most
 * once, before any conversion; only the platform's default charset (a null name) needs it.
 */
QV_EXPORT int32_t QVEncUtilInit(const char* dataDirectory);

/*
 * Opens a converter for the charset of that name, of which the low bytes count. Null is ICU's
 * default charset, which can be had after QVEncUtilInit only. Never null: where no converter can be
 * opened, which a message on standard output tells but for that last case, and where memory is
 * short, the converting functions give QV_E_CONVERTER_NOT_OPEN. Both names are the same function.
 */
QV_EXPORT QVEncConverter* QVEncToW_Open(const QVWChar* encodingName);
QV_EXPORT QVEncConverter* QVEncFromW_Open(const QVWChar* encodingName);

/* Null does nothing. Both names are the same function. */
QV_EXPORT void QVEncToW_Close(QVEncConverter* converter);
QV_EXPORT void QVEncFromW_Close(QVEncConverter* converter);

/*
 * Sets the character that FromW writes for one that the charset has not. ToW writes U+FFFD whatever
 * it is; for a single byte some charsets have U+001A until one is set. 0 stands for U+FFFD. A
 * negative one stops both directions at what cannot be converted, for good: a character that is set
 * later does not lift that.
 *
 * S_OK; QV_E_INVALID_CHAR for 0x10FFFF and above, and for a character that the charset has not
 * itself: nothing changes. Without a converter E_FAIL, and QV_E_CONVERTER_NOT_OPEN for a negative
 * one. E_ABORT if ICU refuses to stop, E_FAIL if it fails otherwise. Both names are the same
 * function.
 */
QV_EXPORT QVRESULT QVEncToW_SetSubstitutionChar(QVEncConverter* converter,
                                                int32_t substitutionChar);
QV_EXPORT QVRESULT QVEncFromW_SetSubstitutionChar(QVEncConverter* converter,
                                                  int32_t substitutionChar);

/*
 * Converts from *source up to the limit, and moves both pointers behind what was read and written.
 *
 * S_OK: all was read, though the converter may keep a part of a character. QV_E_BUFFER_TOO_SMALL:
 * the target is full; call again with more room. QV_E_INVALID_CHAR: what was asked to stop at, and
 * the pointers stand behind it. QV_E_CONVERTER_NOT_OPEN for a null converter too. E_FAIL: a limit
 * in front of its pointer, a null pointer with a limit, memory.
 */
QV_EXPORT QVRESULT QVEncToW_Convert(QVEncConverter* converter, const char** source,
                                    const char* sourceLimit, QVWChar** target,
                                    const QVWChar* targetLimit);
QV_EXPORT QVRESULT QVEncFromW_Convert(QVEncConverter* converter, const QVWChar** source,
                                      const QVWChar* sourceLimit, char** target,
                                      const char* targetLimit);

/*
 * Ends the stream: writes what the converter keeps and what ends a text of the charset. The next
 * call starts a new stream. Results as above; QV_E_INVALID_CHAR for a text that ends within a
 * character, when that is to stop.
 */
QV_EXPORT QVRESULT QVEncToW_Flush(QVEncConverter* converter, QVWChar** target,
                                  const QVWChar* targetLimit);
QV_EXPORT QVRESULT QVEncFromW_Flush(QVEncConverter* converter, char** target,
                                    const char* targetLimit);

/*
 * A whole text from one charset to another, by converters of its own. The lengths are bytes: the
 * sizes of the buffers at first, what was read and written afterwards. No terminator is added.
 *
 * The substitution character is set on both sides, so both charsets must have it: 0 is refused with
 * QV_E_INVALID_CHAR by most that are no UTF. Such a failure leaves the lengths as they were.
 * QV_E_BUFFER_TOO_SMALL: more was read than was written, and the rest cannot be had by another
 * call. QV_E_INVALID_CHAR, QV_E_CONVERTER_NOT_OPEN and E_FAIL as above.
 */
QV_EXPORT QVRESULT QVEncConvert(const char* source, uint32_t* sourceLength,
                                const QVWChar* sourceEncoding, char* target, uint32_t* targetLength,
                                const QVWChar* targetEncoding, int32_t substitutionChar);

/*
 * The UTF family. Capacities and lengths count the units of the buffer they go with. A source
 * length of -1 is a terminated text. A terminator is added where there is room; a result that
 * fills the buffer has none.
 *
 * subChar stands in for what is ill-formed; 0 is the character U+0000, a negative one stops with
 * QV_E_INVALID_CHAR, and a surrogate or more than 0x10FFFF is E_FAIL.
 *
 * S_OK; QV_E_BUFFER_TOO_SMALL with the needed length in *destLength, for which dest may be null and
 * its capacity 0; E_FAIL for a negative capacity, a null source with a length, a source length
 * below -1. *destLength is 0 when the length is not known; it may be null.
 */
QV_EXPORT QVRESULT QVEncUTF8ToUTF16(QVWChar* dest, int32_t destCapacity, int32_t* destLength,
                                    const char* src, int32_t srcLength, int32_t subChar);
QV_EXPORT QVRESULT QVEncUTF16ToUTF8(char* dest, int32_t destCapacity, int32_t* destLength,
                                    const QVWChar* src, int32_t srcLength, int32_t subChar);
/* The same two under other names. */
QV_EXPORT QVRESULT QVUTF8ToW(QVWChar* dest, int32_t destCapacity, int32_t* destLength,
                             const char* src, int32_t srcLength, int32_t subChar);
QV_EXPORT QVRESULT QVWToUTF8(char* dest, int32_t destCapacity, int32_t* destLength,
                             const QVWChar* src, int32_t srcLength, int32_t subChar);

/*
 * The same, but any negative source length is a terminated text, and destLength is not null. These
 * go through UTF-16: from 512 units of it on (one for each source byte, two for each UTF-32 unit)
 * that is a heap block, without which they are E_FAIL and leave *destLength. What the substitutes
 * add to a source of that size can make it too small: QV_E_BUFFER_TOO_SMALL with length 0.
 */
QV_EXPORT QVRESULT QVEncUTF8ToUTF32(uint32_t* dest, int32_t destCapacity, int32_t* destLength,
                                    const char* src, int32_t srcLength, int32_t subChar);
QV_EXPORT QVRESULT QVEncUTF32ToUTF8(char* dest, int32_t destCapacity, int32_t* destLength,
                                    const uint32_t* src, int32_t srcLength, int32_t subChar);

QV_END_DECLS

#endif
