// The example host: looks at text files with objects of registered classes.
#include <qvcore6/component.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "analysis.h"
#include "classes.h"
#include "options.h"
#include "report.h"
#include "store.h"

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

fs::path ProgramFolder(const char* program)
{
    std::error_code error;
    const fs::path own = fs::read_symlink("/proc/self/exe", error);
    return error ? fs::absolute(program, error).parent_path() : own.parent_path();
}

fs::path StateFolder(const Options& options, const fs::path& programFolder)
{
    if (!options.stateFolder.empty()) {
        return fs::absolute(options.stateFolder);
    }
    const char* const chosen = std::getenv("QVCORE6_STATE_DIR");
    return chosen != nullptr && *chosen != '\0' ? fs::path(chosen) : programFolder / "state";
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

int Run(const Options& options, const char* program)
{
    const fs::path programFolder = ProgramFolder(program);
    const fs::path state = StateFolder(options, programFolder);
    const Problem problem = ChooseStore(state);
    if (!problem.empty()) {
        PrintProblem("there is no store: " + problem);
        return 1;
    }
    std::printf("Classes, registered in %s\n", Shown(state.string()).c_str());
    bool good = true;
    const std::vector<TextClass> classes =
        ReadyClasses(options, ComponentFolder(options, programFolder), good);
    if (classes.empty()) {
        PrintProblem("no class can be used, so no file is looked at");
        return 1;
    }
    std::size_t done = 0;
    for (const std::string& file : options.files) {
        done += Analyse(file, classes) ? 1 : 0;
    }
    QVComFlushFactoryCache();
    const std::size_t count = options.files.size();
    std::printf("\n%zu of %zu %s done\n", done, count, count == 1 ? "file" : "files");
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
        const int status = Run(options, count > 0 ? arguments[0] : "host");
        // A report that did not reach its reader is no success.
        return std::fflush(stdout) == 0 ? status : 1;
    } catch (const std::exception& failure) {
        PrintProblem(std::string("stopped: ") + failure.what());
        return 1;
    }
}
