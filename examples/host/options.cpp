#include "options.h"

#include <qvcore6/option.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <string_view>
#include <system_error>

namespace host
{

namespace
{

enum Choice : int32_t
{
    kHelp,
    kShowSettings,
    kState,
    kComponents,
    kStatistics,
    kEncoding,
    kThreads,
    kWatch,
    kClass
};

const QVOption kOptions[] = {{"help", QV_OPTION_NO_ARGUMENT, kHelp},
                             {"settings", QV_OPTION_NO_ARGUMENT, kShowSettings},
                             {"state", QV_OPTION_REQUIRES_ARGUMENT, kState},
                             {"components", QV_OPTION_REQUIRES_ARGUMENT, kComponents},
                             {"stats", QV_OPTION_REQUIRES_ARGUMENT, kStatistics},
                             {"encoding", QV_OPTION_REQUIRES_ARGUMENT, kEncoding},
                             {"threads", QV_OPTION_REQUIRES_ARGUMENT, kThreads},
                             {"watch", QV_OPTION_REQUIRES_ARGUMENT, kWatch},
                             {"class", QV_OPTION_REQUIRES_ARGUMENT, kClass},
                             {nullptr, 0, 0}};

void ReadThreads(std::string_view value, Options& options)
{
    const char* const end = value.data() + value.size();
    const auto [stop, failure] = std::from_chars(value.data(), end, options.threads);
    if (failure != std::errc() || stop != end || options.threads < 1 || options.threads > 64) {
        options.error = "--threads needs a number from 1 to 64";
    }
}

void Take(int32_t choice, const std::string& value, Options& options)
{
    switch (choice) {
    case kHelp:
        options.help = true;
        break;
    case kShowSettings:
        options.showSettings = true;
        break;
    case kState:
        options.stateFolder = value;
        break;
    case kComponents:
        options.componentFolder = value;
        break;
    case kStatistics:
        options.statisticsFile = value;
        break;
    case kEncoding:
        options.encoding = value;
        break;
    case kThreads:
        ReadThreads(value, options);
        break;
    case kWatch:
        options.watched = value;
        break;
    case kClass:
        options.moreClasses.push_back(value);
        break;
    default: // the library has printed why
        options.error = "the command line is wrong";
    }
}

} // namespace

Options ReadOptions(int count, char** arguments)
{
    Options options;
    int32_t record = 0;
    int32_t choice = 0;
    while (options.error.empty() &&
           (choice = QVGetOption(count, arguments, kOptions, &record)) != -1) {
        const char* const value = QVGetOptionArgument;
        if (value != nullptr && *value == '\0') {
            options.error = std::string("--") + kOptions[record].name + " needs a value";
            break;
        }
        Take(choice, value != nullptr ? value : "", options);
    }
    if (options.error.empty()) {
        // Without even the program's name the index is behind the end.
        options.files.assign(arguments + std::min(QVGetOptionIndex, count), arguments + count);
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
and a word table written in C, and prints what they find. The classes get each
text in UTF-8, whatever its charset is. They are
registered in a store first, and then created by name or by GUID, as any program
that uses the library would do it. Several threads share the work; what their
queue's lock has counted is shown at the end. A second process prints how far
they are, and another program counts the words of the first file.

  --state DIR        keep the store in DIR; without it in $QVCORE6_STATE_DIR, or
                     in the folder "state" beside this program
  --components DIR   where the components' libraries are; without it in the
                     folder "components" beside this program's own folder
  --encoding NAME    the charset of the files, as ICU names it (a name that it does
                     not know is ISO-8859-1); without it each file's own: by a
                     byte order mark, or UTF-8 if it is, or else that of the user
  --threads N        how many threads share the files, 1 to 64; without it as many
                     as the last time, and one for each processor at first
  --stats FILE       append the lock statistics to FILE, as comma-separated
                     lines; without it to "lockstats.csv" beside the store
  --class NAME       look at the files with this class too, if it is registered
                     in the store; may be given more than once
  --settings         moves what the store holds to an ini file, shows that, and
                     moves it back
  --                 what follows are files, even if they start with "-"
  --help             this text

An option's name may be cut short, its value may follow behind a "=" too, and
options may stand behind files.

Exit status: 0 if all went well, 1 if a class or a file could not be used (the
others are still done), 2 if the command line is wrong.
)";
}

} // namespace host
