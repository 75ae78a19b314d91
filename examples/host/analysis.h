// The classes that look at the files, and one file's way through them.
#pragma once

#include <qvcore6/component.h>

#include <string>
#include <vector>

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

// Prints what the classes find in the file. False, with the reason printed, if something failed.
bool Analyse(const std::string& file, const std::vector<TextClass>& classes);

} // namespace host
