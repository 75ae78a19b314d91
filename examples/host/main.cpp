// The example host: looks at text files with objects of registered classes.
#include <qvcore6/component.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "analysis.h"
#include "child.h"
#include "classes.h"
#include "crew.h"
#include "files.h"
#include "lock_report.h"
#include "options.h"
#include "progress.h"
#include "report.h"
#include "settings.h"
#include "store.h"
#include "surroundings.h"

namespace
{

namespace fs = std::filesystem;
using namespace host;

struct Registration
{
    GUID clsid;
    const char16_t* progId;
    const char* library;
    bool byGuid;
};

const Registration kRegistrations[] = {
    {CLSID_TextCounter, u"Example.TextCounter", "text_counter.so", false},
    {CLSID_WordTable, u"Example.WordTable", "word_table.so", true},
};

fs::path OwnProgram(const char* program)
{
    std::error_code error;
    const fs::path own = fs::read_symlink("/proc/self/exe", error);
    return error ? fs::absolute(program, error) : own;
}

fs::path StateFolder(const Options& options, const fs::path& programFolder)
{
    if (!options.stateFolder.empty()) {
        return fs::absolute(options.stateFolder);
    }
    const char* const chosen = std::getenv("QVCORE6_STATE_DIR");
    return chosen != nullptr && *chosen != '\0' ? fs::absolute(chosen) : programFolder / "state";
}

fs::path ComponentFolder(const Options& options, const fs::path& programFolder)
{
    return options.componentFolder.empty() ? programFolder.parent_path() / "components"
                                           : fs::absolute(options.componentFolder);
}

// The classes that can be used. The others are named on the way.
std::vector<TextClass> ReadyClasses(const Options& options, const fs::path& components, bool& good)
{
    std::vector<TextClass> wanted;
    for (const Registration& row : kRegistrations) {
        const Problem problem = RegisterClass(row.clsid, row.progId, components / row.library);
        if (!problem.empty()) {
            PrintProblem("class " + Narrow(row.progId) + " cannot be registered: " + problem);
            good = false;
            continue;
        }
        wanted.push_back({row.progId, row.clsid, row.byGuid});
    }
    for (const std::string& name : options.moreClasses) {
        const std::u16string progId = Widen(name);
        if (progId.empty()) {
            PrintProblem("class " + name + " cannot be used: its name is not UTF-8");
            good = false;
            continue;
        }
        wanted.push_back({progId, {}, false});
    }
    std::vector<TextClass> ready;
    for (TextClass& textClass : wanted) {
        if (Introduce(textClass)) {
            ready.push_back(textClass);
        } else {
            good = false;
        }
    }
    return ready;
}

std::size_t ThreadCount(const Settings& settings, std::size_t files)
{
    const std::size_t wanted =
        settings.threads != 0 ? settings.threads : std::thread::hardware_concurrency();
    return std::clamp<std::size_t>(wanted, 1, files);
}

bool Print(const FileReport& report)
{
    std::fputs(report.text.c_str(), stdout);
    for (const std::string& problem : report.problems) {
        PrintProblem(problem);
    }
    return report.problems.empty();
}

// ", by 2 threads (3 + 1)"
std::string InWords(const std::vector<uint32_t>& counts)
{
    std::string sum;
    for (const uint32_t files : counts) {
        sum += (sum.empty() ? "" : " + ") + std::to_string(files);
    }
    return counts.size() < 2 ? ""
                             : ", by " + std::to_string(counts.size()) + " threads (" + sum + ")";
}

// The same text, looked at by a program that knows nothing of components.
void PrintSecondOpinion(const TextFile& file)
{
    if (file.path.empty()) {
        return; // the standard input can be read once
    }
    std::string answer = Ask(u"/usr/bin/wc", u"-w", file);
    answer.erase(std::remove(answer.begin(), answer.end(), '\n'), answer.end());
    std::printf("\nA second opinion on %s\n", Shown(file.name).c_str());
    PrintRow(2, "/usr/bin/wc -w", Shown(answer));
}

int Run(const Options& options, const char* program)
{
    const fs::path ownProgram = OwnProgram(program);
    const fs::path programFolder = ownProgram.parent_path();
    const fs::path state = StateFolder(options, programFolder);
    const Problem problem = ChooseStore(state);
    if (!problem.empty()) {
        PrintProblem("there is no store: " + problem);
        return 1;
    }
    if (options.showSettings) {
        const Problem failed = ShowSettings(state.string());
        if (!failed.empty()) {
            PrintProblem(failed);
        }
        return failed.empty() ? 0 : 1;
    }
    PrintSurroundings();
    Settings settings = ReadSettings();
    if (options.threads != 0) {
        settings.threads = options.threads;
    }
    if (!settings.lastRun.empty()) {
        std::printf("The last run was at %s\n\n", Shown(settings.lastRun).c_str());
    }
    std::printf("Classes, registered in %s\n", Shown(state.string()).c_str());
    bool good = true;
    const std::vector<TextClass> classes =
        ReadyClasses(options, ComponentFolder(options, programFolder), good);
    if (classes.empty()) {
        PrintProblem("no class can be used, so no file is looked at");
        return 1;
    }
    std::vector<std::string> problems;
    std::vector<TextFile> files = FindFiles(options.files, problems);
    for (TextFile& file : files) {
        file.charset = Widen(options.encoding);
    }
    for (const std::string& wrong : problems) {
        PrintProblem(wrong);
        good = false;
    }
    if (files.empty()) {
        return 1;
    }
    const std::size_t count = files.size();
    Progress progress(static_cast<uint32_t>(count), ownProgram.u16string());
    Crew crew(files, classes, ThreadCount(settings, count), progress);
    std::size_t done = 0;
    for (std::size_t file = 0; file < count; ++file) {
        done += Print(crew.Await(file)) ? 1 : 0;
    }
    const std::string hands = InWords(crew.Finish());
    QVComFlushFactoryCache();
    std::printf("\n%zu of %zu %s done%s\n", done, count, count == 1 ? "file" : "files",
                hands.c_str());
    PrintSecondOpinion(files.front());
    std::printf("\nA second process saw\n%s", progress.Finish().c_str());
    const fs::path statistics =
        options.statisticsFile.empty() ? state / "lockstats.csv" : fs::path(options.statisticsFile);
    const Problem unsaved = WriteSettings(settings);
    if (!unsaved.empty()) {
        PrintProblem(unsaved);
        good = false;
    }
    good = ReportLock("files to do", crew.QueueMutex(), statistics) && good;
    return good && done == count ? 0 : 1;
}

} // namespace

int main(int count, char** arguments)
{
    try {
        const Options options = ReadOptions(count, arguments);
        if (options.help) {
            std::fputs(HelpText().c_str(), stdout);
            return 0;
        }
        if (!options.error.empty()) {
            PrintProblem(options.error + " (try --help)");
            return 2;
        }
        if (!options.watched.empty()) {
            return Watch(options.watched);
        }
        const int status = Run(options, count > 0 ? arguments[0] : "host");
        // A report that did not reach its reader is no success.
        return std::fflush(stdout) == 0 ? status : 1;
    } catch (const std::exception& failure) {
        PrintProblem(std::string("stopped: ") + failure.what());
        return 1;
    }
}
