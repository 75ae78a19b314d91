/* Reads UTF-8 byte by byte, so that a text may arrive in pieces cut anywhere. */
#ifndef EXAMPLES_UTF8_H
#define EXAMPLES_UTF8_H

#include <stdint.h>

typedef struct Utf8Reader
{
    uint32_t point;   /* the bits so far */
    uint32_t least;   /* the smallest code point that this length may carry */
    uint32_t missing; /* bytes that the sequence still lacks */
} Utf8Reader;

typedef enum Utf8Step
{
    UTF8_MORE,   /* the sequence goes on */
    UTF8_POINT,  /* reader->point is complete */
    UTF8_BROKEN, /* this byte ends an ill-formed sequence */
    UTF8_AGAIN   /* the sequence before this byte is ill-formed; the byte itself comes again */
} Utf8Step;

static inline Utf8Step Utf8Begin(Utf8Reader* reader, uint32_t bits, uint32_t missing,
                                 uint32_t least)
{
    reader->point = bits;
    reader->missing = missing;
    reader->least = least;
    return missing == 0 ? UTF8_POINT : UTF8_MORE;
}

static inline Utf8Step Utf8Read(Utf8Reader* reader, unsigned char byte)
{
    if (reader->missing == 0) {
        if (byte < 0x80) {
            return Utf8Begin(reader, byte, 0, 0);
        }
        if (byte >= 0xC2 && byte < 0xE0) {
            return Utf8Begin(reader, byte & 0x1Fu, 1, 0x80);
        }
        if (byte >= 0xE0 && byte < 0xF0) {
            return Utf8Begin(reader, byte & 0x0Fu, 2, 0x800);
        }
        return byte >= 0xF0 && byte < 0xF5 ? Utf8Begin(reader, byte & 0x07u, 3, 0x10000)
                                           : UTF8_BROKEN;
    }
    if ((byte & 0xC0) != 0x80) {
        reader->missing = 0;
        return UTF8_AGAIN;
    }
    reader->point = reader->point << 6 | (byte & 0x3Fu);
    if (--reader->missing != 0) {
        return UTF8_MORE;
    }
    return reader->point < reader->least || reader->point > 0x10FFFF ||
                   (reader->point >= 0xD800 && reader->point <= 0xDFFF)
               ? UTF8_BROKEN
               : UTF8_POINT;
}

#endif
