#include <qvcore6/str.h>

#include <cstring>

#include "text/wide_units.h"

using namespace qv::core;

namespace
{

bool IsDelimiter(char unit, const char* delimiters)
{
    return unit != 0 && std::strchr(delimiters, unit) != nullptr;
}

bool IsDelimiter(QVWChar unit, const QVWChar* delimiters)
{
    return unit != 0 && FindUnit(delimiters, unit) != nullptr;
}

template <class Unit> Unit* NextToken(Unit** state, const Unit* delimiters)
{
    Unit* start = *state;
    if (start == nullptr) {
        return nullptr;
    }
    *state = nullptr;
    while (IsDelimiter(*start, delimiters)) {
        ++start;
    }
    if (*start == 0) {
        return nullptr;
    }
    Unit* end = start;
    while (*end != 0 && !IsDelimiter(*end, delimiters)) {
        ++end;
    }
    if (*end != 0) {
        *end = 0;
        *state = end + 1;
    }
    return start;
}

} // namespace

char* QVStrTokA(char** state, const char* delimiters)
{
    return NextToken(state, delimiters);
}

QVWChar* QVStrTokW(QVWChar** state, const QVWChar* delimiters)
{
    return NextToken(state, delimiters);
}
