/*
 * Strings: one name for each string operation on each kind of text.
 *
 * The last letters of a name say what it works on:
 *   A      char; bytes of the process's locale. Only bytes above 0x7F depend on the locale.
 *   W      QVWChar; plain 16-bit units, compared by their value; surrogates are not looked at.
 *   UCS2   QVWChar; one unit is one character. A single surrogate is found only where unpaired.
 *   UTF16  QVWChar; code points. A surrogate pair is one character, order is that of code points.
 * W, UCS2 and UTF16 text have the same form, so a text may go from one kind to another.
 *
 * Sizes and counts are in units of the text's own kind. Text ends at a zero unit. Pointers are
 * taken as valid unless a function says that null is allowed, and a destination does not overlap
 * its source. Case and classes of ASCII are fixed; above 0x7F the C library decides under the
 * process's locale (A, W), or ICU (UTF16). A surrogate unit of W text has no case and no class.
 *
 * Nothing here keeps state or takes a lock: any thread may call anything, on text that no other
 * thread changes. There are no result codes. Only the duplicating functions can fail outright.
 *
 *     char path[16];
 *     QVStrNZCpyA(path, sizeof path, "/var/", UINT32_MAX);
 *     QVStrNZCatA(path, sizeof path, "lib/services", UINT32_MAX);
 *     assert(QVStrCmpA(path, "/var/lib/servic") == 0);
 *
 *     char joined[16] = "";
 *     char* state = path;
 *     for (char* part; (part = QVStrTokA(&state, "/")) != NULL;) {
 *         QVStrCatA(joined, part);
 *     }
 *     assert(QVStrCmpA(joined, "varlibservic") == 0);
 */
#ifndef QVCORE6_STR_H
#define QVCORE6_STR_H

#include <qvcore6/base.h>

QV_BEGIN_DECLS

/* --- Length --- */

/* Units before the terminator. UTF16: texts of up to 2,147,483,647 units. */
QV_EXPORT size_t QVStrLenA(const char* s);
QV_EXPORT size_t QVStrLenW(const QVWChar* s);
QV_EXPORT int32_t QVStrLenUTF16(const QVWChar* s);

/* Units before the terminator, at most max. With max 0, s is not read. */
QV_EXPORT uint32_t QVStrNLenA(const char* s, uint32_t max);
QV_EXPORT uint32_t QVStrNLenW(const QVWChar* s, uint32_t max);
QV_EXPORT uint32_t QVStrNLenUTF16(const QVWChar* s, uint32_t max);

/* Code points before the terminator; an unpaired surrogate counts 1. */
QV_EXPORT int32_t QVCountCharUTF16(const QVWChar* s);

/* --- Copy and join --- */

/* As strcpy, strncpy, strcat and strncat of C: dest is large enough. Each gives dest. */
QV_EXPORT char* QVStrCpyA(char* dest, const char* src);
QV_EXPORT QVWChar* QVStrCpyW(QVWChar* dest, const QVWChar* src);
/* Exactly n units: a shorter src is followed by zero units, a longer one leaves no terminator. */
QV_EXPORT char* QVStrNCpyA(char* dest, const char* src, uint32_t n);
QV_EXPORT QVWChar* QVStrNCpyW(QVWChar* dest, const QVWChar* src, uint32_t n);
QV_EXPORT char* QVStrCatA(char* dest, const char* src);
QV_EXPORT QVWChar* QVStrCatW(QVWChar* dest, const QVWChar* src);
/* At most n units of src, and always a terminator behind them. */
QV_EXPORT char* QVStrNCatA(char* dest, const char* src, uint32_t n);
QV_EXPORT QVWChar* QVStrNCatW(QVWChar* dest, const QVWChar* src, uint32_t n);

/*
 * Copies at most maxCount units of src into a buffer of destSize units and terminates it; what does
 * not fit is cut without notice. Gives dest. A and W fill up to the bound (the smaller of
 * destSize - 1 and maxCount) with zero units. UTF16 writes a terminator behind the text and one at
 * the bound, and leaves what lies between. destSize 0 is a mistake, and nothing is written.
 */
QV_EXPORT char* QVStrNZCpyA(char* dest, uint32_t destSize, const char* src, uint32_t maxCount);
QV_EXPORT QVWChar* QVStrNZCpyW(QVWChar* dest, uint32_t destSize, const QVWChar* src,
                               uint32_t maxCount);
QV_EXPORT QVWChar* QVStrNZCpyUTF16(QVWChar* dest, uint32_t destSize, const QVWChar* src,
                                   uint32_t maxCount);

/*
 * The same behind the text in dest. Gives the place where src was appended, which is that of the
 * terminator if nothing fitted. A dest without a terminator in its destSize units gets one in its
 * last unit, and that place is given.
 */
QV_EXPORT char* QVStrNZCatA(char* dest, uint32_t destSize, const char* src, uint32_t maxCount);
QV_EXPORT QVWChar* QVStrNZCatW(QVWChar* dest, uint32_t destSize, const QVWChar* src,
                               uint32_t maxCount);
QV_EXPORT QVWChar* QVStrNZCatUTF16(QVWChar* dest, uint32_t destSize, const QVWChar* src,
                                   uint32_t maxCount);

/*
 * Joins count texts (const char*, null ones are skipped) into dest, which is large enough. Gives
 * the length of the whole. A null dest gives 0.
 */
QV_EXPORT size_t QVStrCpyCatA(char* dest, int32_t count, ...);

/* --- Duplicate --- */

/*
 * A copy of the text, or of at most max units of it, always terminated; null for null. Only
 * QVStrFreeA or QVStrFreeW releases it, either of them. When memory runs out these four throw
 * std::bad_alloc to the caller; in a program without C++ handlers that ends the process.
 */
QV_EXPORT char* QVStrDupA(const char* s);
QV_EXPORT QVWChar* QVStrDupW(const QVWChar* s);
QV_EXPORT char* QVStrNDupA(const char* s, uint32_t max);
QV_EXPORT QVWChar* QVStrNDupW(const QVWChar* s, uint32_t max);

/* Null is allowed. */
QV_EXPORT void QVStrFreeA(char* p);
QV_EXPORT void QVStrFreeW(QVWChar* p);

/* --- Compare: below, equal to or above 0 as first is below, equal to or above second --- */

/* A and W give -1, 0 or 1, UCS2 the difference of the first units that differ. */
QV_EXPORT int32_t QVStrCmpA(const char* first, const char* second);
QV_EXPORT int32_t QVStrCmpW(const QVWChar* first, const QVWChar* second);
QV_EXPORT int32_t QVStrCmpUCS2(const QVWChar* first, const QVWChar* second);
QV_EXPORT int32_t QVStrCmpUTF16(const QVWChar* first, const QVWChar* second);

/* At most n units. */
QV_EXPORT int32_t QVStrNCmpA(const char* first, const char* second, uint32_t n);
QV_EXPORT int32_t QVStrNCmpW(const QVWChar* first, const QVWChar* second, uint32_t n);
QV_EXPORT int32_t QVStrNCmpUTF16(const QVWChar* first, const QVWChar* second, uint32_t n);

/*
 * Without case. A folds ASCII to upper case, so '_' sorts behind the letters; from the first byte
 * above 0x7F in either text on, both are folded to lower case under the locale. W folds to lower
 * case. UCS2 folds ASCII alone, to lower case. UTF16 uses ICU's full case folding.
 */
QV_EXPORT int32_t QVStrICmpA(const char* first, const char* second);
QV_EXPORT int32_t QVStrICmpW(const QVWChar* first, const QVWChar* second);
QV_EXPORT int32_t QVStrICmpUCS2(const QVWChar* first, const QVWChar* second);
QV_EXPORT int32_t QVStrICmpUTF16(const QVWChar* first, const QVWChar* second);

/* The same on at most n units; n 0 gives 0. */
QV_EXPORT int32_t QVStrNICmpA(const char* first, const char* second, uint32_t n);
QV_EXPORT int32_t QVStrNICmpW(const QVWChar* first, const QVWChar* second, uint32_t n);
QV_EXPORT int32_t QVStrNICmpUTF16(const QVWChar* first, const QVWChar* second, uint32_t n);

/* --- Search: the place, or null --- */

/* The first, or the last, occurrence of a character. The terminator counts as one. */
QV_EXPORT char* QVStrChrA(const char* s, char character);
QV_EXPORT QVWChar* QVStrChrW(const QVWChar* s, QVWChar character);
QV_EXPORT QVWChar* QVStrChrUCS2(const QVWChar* s, QVWChar character);
QV_EXPORT QVWChar* QVStrChrUTF16(const QVWChar* s, uint32_t codePoint);
QV_EXPORT char* QVStrRChrA(const char* s, char character);
QV_EXPORT QVWChar* QVStrRChrW(const QVWChar* s, QVWChar character);
QV_EXPORT QVWChar* QVStrRChrUCS2(const QVWChar* s, QVWChar character);
QV_EXPORT QVWChar* QVStrRChrUTF16(const QVWChar* s, uint32_t codePoint);

/* The first occurrence of sub; an empty sub is found at the start. UTF16 splits no pair. */
QV_EXPORT char* QVStrStrA(const char* s, const char* sub);
QV_EXPORT QVWChar* QVStrStrW(const QVWChar* s, const QVWChar* sub);
QV_EXPORT QVWChar* QVStrStrUTF16(const QVWChar* s, const QVWChar* sub);

/*
 * The next token of the text at *state, which is changed in place and is null when none is left.
 * Before the first call *state is the text. Delimiters in a row give no empty tokens.
 */
QV_EXPORT char* QVStrTokA(char** state, const char* delimiters);
QV_EXPORT QVWChar* QVStrTokW(QVWChar** state, const QVWChar* delimiters);

/* --- Case, in place. Each gives s --- */

/*
 * UTF16 is ICU's full mapping in its default locale; if the text would grow (as a sharp s does in
 * upper case), it stays as it is. A and W map unit by unit.
 */
QV_EXPORT char* QVStrToLowerA(char* s);
QV_EXPORT QVWChar* QVStrToLowerW(QVWChar* s);
QV_EXPORT QVWChar* QVStrToLowerUTF16(QVWChar* s);
QV_EXPORT char* QVStrToUpperA(char* s);
QV_EXPORT QVWChar* QVStrToUpperW(QVWChar* s);
QV_EXPORT QVWChar* QVStrToUpperUTF16(QVWChar* s);

/* --- Characters --- */

/*
 * Above 0x7F the C library decides. An A byte goes to it as a signed char, as most callers pass
 * one: byte 0xFF is then its EOF, which has no other case and is in no class. In a text it is a
 * letter like any other, if the charset says so.
 */
QV_EXPORT char QVToLowerA(char character);
QV_EXPORT QVWChar QVToLowerW(QVWChar character);
QV_EXPORT char QVToUpperA(char character);
QV_EXPORT QVWChar QVToUpperW(QVWChar character);

/* 1 or 0. */
QV_EXPORT char QVIsAlphaA(char character);
QV_EXPORT QVWChar QVIsAlphaW(QVWChar character);
QV_EXPORT char QVIsDigitA(char character);
QV_EXPORT QVWChar QVIsDigitW(QVWChar character);
QV_EXPORT char QVIsSpaceA(char character);
QV_EXPORT QVWChar QVIsSpaceW(QVWChar character);

/* --- Numbers --- */

/*
 * As strtol and its kin of C, with L of 32 bits and LL of 64 bits on every platform. A number that
 * is out of range gives the nearest limit and errno ERANGE; a base other than 0 and 2 to 36 gives 0
 * and EINVAL. *end, if end is not null, is the first unit not used, or s if there is no number.
 * Digits are those of ASCII; which units in front count as space is the locale's choice.
 */
QV_EXPORT int32_t QVStrToLA(const char* s, char** end, int32_t base);
QV_EXPORT int32_t QVStrToLW(const QVWChar* s, QVWChar** end, int32_t base);
QV_EXPORT int64_t QVStrToLLA(const char* s, char** end, int32_t base);
QV_EXPORT int64_t QVStrToLLW(const QVWChar* s, QVWChar** end, int32_t base);
QV_EXPORT uint32_t QVStrToULA(const char* s, char** end, int32_t base);
QV_EXPORT uint32_t QVStrToULW(const QVWChar* s, QVWChar** end, int32_t base);
QV_EXPORT uint64_t QVStrToULLA(const char* s, char** end, int32_t base);

/* With the locale's decimal point. QVStrToDW: errno ENOMEM and 0 are possible above 250 units. */
QV_EXPORT double QVStrToDA(const char* s, char** end);
QV_EXPORT double QVStrToDW(const QVWChar* s, QVWChar** end);

/* Base 10, with the limits as above. */
QV_EXPORT int32_t QVStrToIA(const char* s);
QV_EXPORT int32_t QVStrToIW(const QVWChar* s);
QV_EXPORT int64_t QVStrToI64W(const QVWChar* s);

/*
 * Digits in lower case; a minus sign with radix 10 alone, any other radix shows the two's
 * complement. A radix outside 2 to 36 gives the empty text and errno EINVAL. The buffer has room
 * for 33 units (QVLToStr) or 65 (QVInt64ToStr), which is enough for every radix. Gives buffer.
 */
QV_EXPORT char* QVLToStrA(int32_t value, char* buffer, int32_t radix);
QV_EXPORT QVWChar* QVLToStrW(int32_t value, QVWChar* buffer, int32_t radix);
QV_EXPORT char* QVInt64ToStrA(int64_t value, char* buffer, int32_t radix);
QV_EXPORT QVWChar* QVInt64ToStrW(int64_t value, QVWChar* buffer, int32_t radix);

/* --- Conversion --- */

/*
 * Text of the process's locale to wide text: units written without the terminator. A result of
 * size means that dest has no terminator. A null dest gives the units needed. (size_t)-1, with
 * errno EILSEQ, at the first byte that the locale does not know; what comes before is in dest.
 */
QV_EXPORT size_t QVAnsiToUnicode(QVWChar* dest, const char* src, uint32_t size);

/* The other way, in bytes. A character whose bytes do not all fit is not begun. */
QV_EXPORT size_t QVUnicodeToAnsi(char* dest, const QVWChar* src, uint32_t size);

/*
 * Terminated text to and from UTF-8. Gives the length without the terminator, also when it is above
 * the capacity: then dest holds a part of it. A length equal to capacity leaves no terminator.
 * Ill-formed text gives 0, and dest is undefined. A null dest with capacity 0 asks for the length.
 */
QV_EXPORT int32_t QVUTF16ToUTF8(char* dest, const QVWChar* src, int32_t capacity);
QV_EXPORT int32_t QVUTF8ToUTF16(QVWChar* dest, const char* src, int32_t capacity);

/*
 * The same for srcLength units of src, -1 for terminated text; the length goes to *destLength (null
 * is allowed) and is 0 for ill-formed text. dest, or null for ill-formed text or wrong arguments.
 */
QV_EXPORT char* QVUTF16ToUTF8N(char* dest, int32_t capacity, int32_t* destLength,
                               const QVWChar* src, int32_t srcLength);
QV_EXPORT QVWChar* QVUTF8ToUTF16N(QVWChar* dest, int32_t capacity, int32_t* destLength,
                                  const char* src, int32_t srcLength);

/*
 * The code point at *cursor, which moves behind it. limit is the number of units that may be read,
 * -1 for terminated text. An unpaired surrogate is given as itself. 0 without a move if limit is
 * below 1 (and not -1); a terminator is given as 0 too, and passed.
 */
QV_EXPORT uint32_t QVNextCharUTF16(const QVWChar** cursor, int32_t limit);

/* The three bytes of UTF-8's byte order mark, and a terminator. */
QV_EXPORT extern const char* const QVUtf8BomStr;

/* 1 if s starts with the mark, else 0; reads no further than the first difference. */
QV_EXPORT int32_t QVIsUtf8BomStr(const char* s);

QV_END_DECLS

#endif
