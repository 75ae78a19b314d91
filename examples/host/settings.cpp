#include "settings.h"

#include <qvcore6/registry.h>
#include <qvcore6/time.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "report.h"

namespace host
{

namespace
{

constexpr char16_t kKey[] = u"Example\\Host";

std::string ReadText(const char16_t* name)
{
    QVWChar text[64] = {};
    uint32_t type = 0;
    uint32_t size = sizeof text - sizeof text[0]; // what is stored may lack its terminator
    const QVRESULT result = QVRegistryGetValue(QV_HKEY_USER, kKey, name, &type, text, &size);
    return result >= 0 && type == QV_REGTYPE_STRING ? Narrow(text) : std::string();
}

Problem WriteText(const char16_t* name, const std::string& value)
{
    const std::u16string text = Widen(value);
    const QVRESULT result =
        QVRegistrySetValue(QV_HKEY_USER, kKey, name, QV_REGTYPE_STRING, text.c_str(),
                           static_cast<uint32_t>((text.size() + 1) * sizeof(QVWChar)));
    return result >= 0 ? Problem() : "the settings cannot be written: " + InWords(result);
}

Problem Move(uint32_t from, uint32_t to)
{
    const QVRESULT result = QVRegistryMigrate(from, 0, to, 0);
    return result >= 0 ? Problem() : "the settings cannot be moved: " + InWords(result);
}

} // namespace

Settings ReadSettings()
{
    Settings settings;
    const std::string threads = ReadText(u"Threads");
    if (!threads.empty() && threads.find_first_not_of("0123456789") == threads.npos &&
        threads.size() < 3) {
        settings.threads = static_cast<std::size_t>(std::stoi(threads));
    }
    settings.lastRun = ReadText(u"Last run");
    return settings;
}

Problem WriteSettings(const Settings& settings)
{
    QVTime now;
    QVTimeGetLocal(&now);
    char text[40];
    std::snprintf(text, sizeof text, "%04u-%02u-%02u %02u:%02u:%02u", now.year, now.month, now.day,
                  now.hour, now.minute, now.second);
    const Problem problem = WriteText(u"Last run", text);
    return problem.empty() ? WriteText(u"Threads", std::to_string(settings.threads)) : problem;
}

Problem ShowSettings(const std::string& folder)
{
    std::error_code error;
    std::filesystem::current_path(folder, error); // where the ini file comes to lie
    if (error) {
        return "the folder " + folder + " cannot be entered: " + error.message();
    }
    const Problem problem = Move(QV_STORE_NATIVE, QV_STORE_INI);
    if (!problem.empty()) {
        return problem;
    }
    std::printf("The store as %s/qvregistry.ini\n\n", Shown(folder).c_str());
    std::ifstream file("qvregistry.ini");
    for (std::string line; std::getline(file, line);) {
        std::printf("  %s\n", Shown(line).c_str());
    }
    const Problem back = Move(QV_STORE_INI, QV_STORE_NATIVE);
    if (back.empty()) {
        std::printf("%s\n", std::filesystem::exists("qvregistry.ini")
                                ? "The file stays, as not all of it could be read."
                                : "All of it is back in the store.");
    }
    return back;
}

} // namespace host
