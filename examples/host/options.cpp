#include "options.h"

#include <charconv>
#include <cstddef>
#include <system_error>

namespace host
{

namespace
{

// The value of "--name VALUE" or "--name=VALUE" at arguments[i], which moves on. False if
// arguments[i] is another option.
bool TakeValue(const std::vector<std::string>& arguments, std::size_t& i, const std::string& name,
               std::string& value, std::string& error)
{
    const std::string& argument = arguments[i];
    if (argument.compare(0, name.size() + 1, name + "=") == 0) {
        value = argument.substr(name.size() + 1);
    } else if (argument != name) {
        return false;
    } else if (i + 1 < arguments.size()) {
        value = arguments[++i];
    }
    if (value.empty()) {
        error = name + " needs a value";
    }
    return true;
}

void ReadThreads(const std::string& value, Options& options)
{
    const char* const end = value.data() + value.size();
    const auto [stop, failure] = std::from_chars(value.data(), end, options.threads);
    if (failure != std::errc() || stop != end || options.threads < 1 || options.threads > 64) {
        options.error = "--threads needs a number from 1 to 64";
    }
}

} // namespace

Options ReadOptions(int count, char** arguments)
{
    Options options;
    const std::vector<std::string> list(arguments + (count > 0 ? 1 : 0), arguments + count);
    bool onlyFiles = false;
    for (std::size_t i = 0; i < list.size() && options.error.empty(); ++i) {
        std::string value;
        if (onlyFiles || list[i].empty() || list[i][0] != '-' || list[i] == "-") {
            options.files.push_back(list[i]);
        } else if (list[i] == "--") {
            onlyFiles = true;
        } else if (list[i] == "--help" || list[i] == "-h") {
            options.help = true;
        } else if (list[i] == "--settings") {
            options.showSettings = true;
        } else if (TakeValue(list, i, "--state", value, options.error)) {
            options.stateFolder = value;
        } else if (TakeValue(list, i, "--components", value, options.error)) {
            options.componentFolder = value;
        } else if (TakeValue(list, i, "--stats", value, options.error)) {
            options.statisticsFile = value;
        } else if (TakeValue(list, i, "--threads", value, options.error)) {
            ReadThreads(value, options);
        } else if (TakeValue(list, i, "--watch", value, options.error)) {
            options.watched = value;
        } else if (TakeValue(list, i, "--class", value, options.error)) {
            options.moreClasses.push_back(value);
        } else {
            options.error = "unknown option " + list[i];
        }
    }
    if (options.error.empty() && !options.help && !options.showSettings &&
        options.watched.empty() && options.files.empty()) {
        options.error = "no file to look at";
    }
    return options;
}

std::string HelpText()
{
    return R"(Usage: host [OPTION]... FILE...
       host --settings [--state DIR]

Looks at each FILE, at all files in a FILE that is a folder, or at the standard
input for "-", with the classes of two components, a text counter written in C++
and a word table written in C, and prints what they find. The classes are
registered in a store first, and then created by name or by GUID, as any program
that uses the library would do it. Several threads share the work; what their
queue's lock has counted is shown at the end. A second process prints how far
they are, and another program counts the words of the first file.

  --state DIR        keep the store in DIR; without it in $QVCORE6_STATE_DIR, or
                     in the folder "state" beside this program
  --components DIR   where the components' libraries are; without it in the
                     folder "components" beside this program's own folder
  --threads N        how many threads share the files, 1 to 64; without it as many
                     as the last time, and one for each processor at first
  --stats FILE       append the lock statistics to FILE, as comma-separated
                     lines; without it to "lockstats.csv" beside the store
  --class NAME       look at the files with this class too, if it is registered
                     in the store; may be given more than once
  --settings         moves what the store holds to an ini file, shows that, and
                     moves it back
  --                 what follows are files, even if they start with "-"
  -h, --help         this text

Exit status: 0 if all went well, 1 if a class or a file could not be used (the
others are still done), 2 if the command line is wrong.
)";
}

} // namespace host
