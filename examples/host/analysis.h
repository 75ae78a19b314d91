// The classes that look at the files, and one file's way through them.
#pragma once

#include <qvcore6/component.h>

#include <string>
#include <vector>

#include "files.h"

namespace host
{

struct TextClass
{
    std::u16string progId;
    GUID clsid;
    bool byGuid; // how its objects are created
};

// Finds the class, measures its look-ups and prints them. False, with the reason printed, if it
// cannot be used.
bool Introduce(TextClass& textClass);

struct FileReport
{
    std::string text;                  // what the classes have found, for the screen
    std::vector<std::string> problems; // what went wrong
};

// What the classes find in the file. Any number of threads at once.
FileReport Analyse(const TextFile& file, const std::vector<TextClass>& classes);

} // namespace host
