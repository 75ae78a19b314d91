/* A component in C: the words that a text uses most. */
#include <qvcore6/component.h>
#include <qvcore6/result.h>
#include <qvcore6/str.h>

#include <stdatomic.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "classes.h"
#include "text_analyser.h"
#include "utf8.h"

/* A longer word is cut: a gigabyte without a blank must not become a gigabyte of memory. */
#define WORD_POINTS 64
/* Pairs of units, and room for the growth of lower case. */
#define WORD_UNITS (4 * WORD_POINTS)
#define WORD_BYTES (3 * WORD_UNITS)
/* More words than any language has; what a larger file brings is counted, but not kept. */
#define MOST_WORDS 500000u
#define SHOWN_WORDS 8

typedef struct Word
{
    char* text;
    uint64_t count;
} Word;

typedef struct WordTable
{
    ITextAnalyser base;
    atomic_uint references;
    Utf8Reader reader;
    QVWChar word[WORD_UNITS];
    uint32_t wordUnits;
    uint32_t wordPoints;
    Word* slots; /* open addressing; a null text is a free slot */
    uint32_t slotCount;
    uint32_t distinct;
    uint64_t total;
    uint64_t notKept;
} WordTable;

/* Letters and digits, as well as it goes without tables: all but the known marks beyond ASCII. */
static bool IsWordPoint(uint32_t point)
{
    if (point < 0x80) {
        return (point >= '0' && point <= '9') || (point >= 'A' && point <= 'Z') ||
               (point >= 'a' && point <= 'z');
    }
    if (point < 0xC0) {
        return point == 0xAA || point == 0xB5 || point == 0xBA;
    }
    return point != 0xD7 && point != 0xF7 && !(point >= 0x2000 && point <= 0x2BFF) &&
           !(point >= 0x3000 && point <= 0x303F) && !(point >= 0xFE00 && point <= 0xFE6F) &&
           !(point >= 0xFF00 && point <= 0xFF0F) && point != 0xFEFF && point != 0xFFFD &&
           point < 0x1F000;
}

/* Apostrophes stay inside a word, and go at its ends. */
static bool IsJoiner(uint32_t point)
{
    return point == '\'' || point == 0x2019;
}

static uint32_t Hash(const char* text)
{
    uint32_t hash = 2166136261u;
    for (; *text != '\0'; ++text) {
        hash = (hash ^ (unsigned char)*text) * 16777619u;
    }
    return hash;
}

/* The slot of that word, or the free one where it belongs. There is always a free one. */
static Word* Find(Word* slots, uint32_t slotCount, const char* text)
{
    uint32_t at = Hash(text) & (slotCount - 1);
    while (slots[at].text != NULL && strcmp(slots[at].text, text) != 0) {
        at = (at + 1) & (slotCount - 1);
    }
    return &slots[at];
}

static QVRESULT Grow(WordTable* table)
{
    const uint32_t wider = table->slotCount == 0 ? 1024 : 2 * table->slotCount;
    Word* const slots = calloc(wider, sizeof *slots);
    if (slots == NULL) {
        return E_OUTOFMEMORY;
    }
    for (uint32_t i = 0; i < table->slotCount; ++i) {
        if (table->slots[i].text != NULL) {
            *Find(slots, wider, table->slots[i].text) = table->slots[i];
        }
    }
    free(table->slots);
    table->slots = slots;
    table->slotCount = wider;
    return S_OK;
}

static QVRESULT Keep(WordTable* table, const char* text)
{
    if (table->slotCount == 0 || 2 * table->distinct >= table->slotCount) {
        const QVRESULT result = Grow(table);
        if (result < 0) {
            return result;
        }
    }
    Word* const slot = Find(table->slots, table->slotCount, text);
    if (slot->text == NULL) {
        if (table->distinct == MOST_WORDS) {
            ++table->notKept;
            return S_OK;
        }
        const size_t size = strlen(text) + 1;
        slot->text = malloc(size);
        if (slot->text == NULL) {
            return E_OUTOFMEMORY;
        }
        memcpy(slot->text, text, size);
        ++table->distinct;
    }
    ++slot->count;
    return S_OK;
}

static QVRESULT EndWord(WordTable* table)
{
    while (table->wordUnits > 0 && IsJoiner(table->word[table->wordUnits - 1])) {
        --table->wordUnits;
    }
    const bool isWord = table->wordUnits > 0;
    table->word[table->wordUnits] = 0;
    table->wordUnits = 0;
    table->wordPoints = 0;
    if (!isWord) {
        return S_OK;
    }
    char text[WORD_BYTES];
    QVStrToLowerUTF16(table->word);
    const int32_t length = QVUTF16ToUTF8(text, table->word, (int32_t)sizeof text);
    if (length <= 0 || length >= (int32_t)sizeof text) {
        return S_OK;
    }
    ++table->total;
    return Keep(table, text);
}

static QVRESULT Add(WordTable* table, uint32_t point)
{
    if (!IsWordPoint(point) && !(IsJoiner(point) && table->wordUnits > 0)) {
        return EndWord(table);
    }
    if (table->wordPoints == WORD_POINTS) {
        return S_OK;
    }
    ++table->wordPoints;
    if (point >= 0x10000) {
        table->word[table->wordUnits++] = (QVWChar)(0xD7C0 + (point >> 10));
        point = 0xDC00 | (point & 0x3FF);
    }
    table->word[table->wordUnits++] = (QVWChar)point;
    return S_OK;
}

static WordTable* Self(ITextAnalyser* object)
{
    return (WordTable*)object;
}

static uint32_t AddRef(ITextAnalyser* object)
{
    return atomic_fetch_add(&Self(object)->references, 1) + 1;
}

static uint32_t Release(ITextAnalyser* object)
{
    WordTable* const table = Self(object);
    const uint32_t left = atomic_fetch_sub(&table->references, 1) - 1;
    if (left == 0) {
        for (uint32_t i = 0; i < table->slotCount; ++i) {
            free(table->slots[i].text);
        }
        free(table->slots);
        free(table);
    }
    return left;
}

static QVRESULT QueryInterface(ITextAnalyser* object, const GUID* iid, void** objectOut)
{
    if (!QVComIsEqualGUID(iid, &QV_IID_UNKNOWN) && !QVComIsEqualGUID(iid, &IID_TextAnalyser)) {
        *objectOut = NULL;
        return E_INVALIDARG;
    }
    AddRef(object);
    *objectOut = object;
    return S_OK;
}

static QVRESULT Feed(ITextAnalyser* object, const char* bytes, uint32_t size)
{
    WordTable* const table = Self(object);
    QVRESULT result = S_OK;
    for (uint32_t i = 0; i < size && result >= 0; ++i) {
        const unsigned char byte = (unsigned char)bytes[i];
        Utf8Step step = Utf8Read(&table->reader, byte);
        if (step == UTF8_AGAIN) {
            result = EndWord(table);
            step = result >= 0 ? Utf8Read(&table->reader, byte) : UTF8_MORE;
        }
        if (step == UTF8_POINT) {
            result = Add(table, table->reader.point);
        } else if (step == UTF8_BROKEN) {
            result = EndWord(table);
        }
    }
    return result;
}

/* More frequent words first, then in the order of their bytes. */
static int Compare(const void* left, const void* right)
{
    const Word* const a = left;
    const Word* const b = right;
    if (a->count != b->count) {
        return a->count > b->count ? -1 : 1;
    }
    return strcmp(a->text, b->text);
}

/* The first places, sorted by insertion: there are few of them and many words. */
static uint32_t MostFrequent(const WordTable* table, Word* first)
{
    uint32_t found = 0;
    for (uint32_t i = 0; i < table->slotCount; ++i) {
        const Word word = table->slots[i];
        if (word.text == NULL) {
            continue;
        }
        uint32_t at = found < SHOWN_WORDS ? found++ : SHOWN_WORDS;
        while (at > 0 && Compare(&word, &first[at - 1]) < 0) {
            if (at < SHOWN_WORDS) {
                first[at] = first[at - 1];
            }
            --at;
        }
        if (at < SHOWN_WORDS) {
            first[at] = word;
        }
    }
    return found;
}

static QVRESULT Report(ITextAnalyser* object, char** textOut)
{
    WordTable* const table = Self(object);
    *textOut = NULL;
    QVRESULT result = EndWord(table);
    if (result < 0) {
        return result;
    }
    const uint32_t room = SHOWN_WORDS * (WORD_BYTES + 32) + 512;
    void* block = NULL;
    result = QVComMalloc(room, &block);
    if (result < 0) {
        return result;
    }
    char* const text = block;
    Word first[SHOWN_WORDS];
    const uint32_t found = MostFrequent(table, first);
    size_t used = (size_t)snprintf(text, room, "words of letters\t%llu\ndifferent ones\t%u\n",
                                   (unsigned long long)table->total, table->distinct);
    if (table->notKept != 0) {
        used += (size_t)snprintf(text + used, room - used,
                                 "not in the table\t%llu words, after the first %u\n",
                                 (unsigned long long)table->notKept, MOST_WORDS);
    }
    for (uint32_t i = 0; i < found; ++i) {
        used += (size_t)snprintf(text + used, room - used, "%s\t%s  x%llu\n",
                                 i == 0 ? "most frequent" : "", first[i].text,
                                 (unsigned long long)first[i].count);
    }
    *textOut = text;
    return S_OK;
}

static const ITextAnalyserTable wordTableOperations = {QueryInterface, AddRef, Release, Feed,
                                                       Report};

/* The class object needs no life of its own: it lasts as long as the library. */

static QVRESULT FactoryQueryInterface(IQVClassFactory* object, const GUID* iid, void** objectOut)
{
    if (!QVComIsEqualGUID(iid, &QV_IID_UNKNOWN) && !QVComIsEqualGUID(iid, &QV_IID_CLASS_FACTORY)) {
        *objectOut = NULL;
        return E_INVALIDARG;
    }
    *objectOut = object;
    return S_OK;
}

static uint32_t FactoryAddRef(IQVClassFactory* object)
{
    (void)object;
    return 2;
}

static uint32_t FactoryRelease(IQVClassFactory* object)
{
    (void)object;
    return 1;
}

static QVRESULT FactoryCreateInstance(IQVClassFactory* object, IQVUnknown* outer, const GUID* iid,
                                      void** objectOut)
{
    (void)object;
    *objectOut = NULL;
    if (outer != NULL) {
        return E_NOTIMPL; /* no part of another object */
    }
    WordTable* const table = calloc(1, sizeof *table);
    if (table == NULL) {
        return E_OUTOFMEMORY;
    }
    table->base.table = &wordTableOperations;
    atomic_init(&table->references, 1);
    const QVRESULT result = QueryInterface(&table->base, iid, objectOut);
    Release(&table->base);
    return result;
}

static const IQVClassFactoryTable factoryOperations = {FactoryQueryInterface, FactoryAddRef,
                                                       FactoryRelease, FactoryCreateInstance};
static IQVClassFactory factory = {&factoryOperations};

QV_EXPORT QVRESULT DllGetClassObject(const GUID* clsid, const GUID* iid, void** objectOut);

QVRESULT DllGetClassObject(const GUID* clsid, const GUID* iid, void** objectOut)
{
    *objectOut = NULL;
    if (!QVComIsEqualGUID(clsid, &CLSID_WordTable)) {
        return REGDB_E_CLASSNOTREG;
    }
    return FactoryQueryInterface(&factory, iid, objectOut);
}
