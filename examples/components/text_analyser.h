/*
 * The interface of the example's classes: an object that reads one text, piece by piece, and then
 * says something about it. It compiles as C and as C++, and means the same in memory.
 */
#ifndef EXAMPLES_TEXT_ANALYSER_H
#define EXAMPLES_TEXT_ANALYSER_H

#include <qvcore6/component.h>

/* {6B1F8D52-3C0E-4B57-9A41-D2E07C5A8F13} */
static const GUID IID_TextAnalyser = {
    0x6B1F8D52, 0x3C0E, 0x4B57, {0x9A, 0x41, 0xD2, 0xE0, 0x7C, 0x5A, 0x8F, 0x13}};

/*
 * Feed: the next piece of the text, of any size; a character may be cut between two pieces.
 * Report: rows "label<TAB>value<NEWLINE>" about the text so far, as UTF-8. The caller frees the
 * text with QVComFree. *textOut is null after a failure.
 * One thread at a time uses an object.
 */
#ifdef __cplusplus

struct ITextAnalyser : IQVUnknown
{
    virtual QVRESULT Feed(const char* bytes, uint32_t size) = 0;
    virtual QVRESULT Report(char** textOut) = 0;

protected:
    ~ITextAnalyser() = default;
};

#else

typedef struct ITextAnalyser ITextAnalyser;
typedef struct ITextAnalyserTable
{
    QVRESULT (*QueryInterface)(ITextAnalyser* object, const GUID* iid, void** objectOut);
    uint32_t (*AddRef)(ITextAnalyser* object);
    uint32_t (*Release)(ITextAnalyser* object);
    QVRESULT (*Feed)(ITextAnalyser* object, const char* bytes, uint32_t size);
    QVRESULT (*Report)(ITextAnalyser* object, char** textOut);
} ITextAnalyserTable;
struct ITextAnalyser
{
    const ITextAnalyserTable* table;
};

#endif

#endif
