// The command line.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace host
{

struct Options
{
    bool help = false;
    bool showSettings = false;
    std::string error; // what is wrong with the command line, in words
    std::string stateFolder;
    std::string componentFolder;
    std::string statisticsFile;
    std::string encoding;                 // of all files; empty: to be found out
    std::string watched;                  // be the second process for the counter of this name
    std::size_t threads = 0;              // 0: as remembered
    std::vector<std::string> moreClasses; // ProgIDs beside those of the example
    std::vector<std::string> files;       // and folders
};

Options ReadOptions(int count, char** arguments);
std::string HelpText();

} // namespace host
