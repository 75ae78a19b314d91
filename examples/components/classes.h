/* The classes of the example's components. */
#ifndef EXAMPLES_CLASSES_H
#define EXAMPLES_CLASSES_H

#include <qvcore6/component.h>

/* {2E9C4A70-51D8-4F06-B3A9-8C17F05E6D21}: counts what a text consists of. */
static const GUID CLSID_TextCounter = {
    0x2E9C4A70, 0x51D8, 0x4F06, {0xB3, 0xA9, 0x8C, 0x17, 0xF0, 0x5E, 0x6D, 0x21}};

/* {A4D70B36-8E12-4C95-87F0-1B5D62C93E48}: finds the words that a text uses most. */
static const GUID CLSID_WordTable = {
    0xA4D70B36, 0x8E12, 0x4C95, {0x87, 0xF0, 0x1B, 0x5D, 0x62, 0xC9, 0x3E, 0x48}};

#endif
