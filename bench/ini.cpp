// The ini file beside GKeyFile and bare calls, the migration beside single writes, and what the
// system tells of itself beside its files.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <qvcore6/registry.h>
#include <qvcore6/sysinfo.h>
#include <semaphore.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "config/ini_file.h"
#include "ratio.h"

#if QV_BENCH_HAS_GLIB
#include <glib.h>
#endif

namespace
{

// In memory, where the disk decides on nothing.
struct Folder
{
    Folder()
    {
        if (mkdtemp(path.data()) == nullptr) {
            std::abort();
        }
        setenv("QVCORE6_STATE_DIR", path.c_str(), 1);
    }
    ~Folder() { std::filesystem::remove_all(path); }
    std::string path = "/dev/shm/qvcore6-bench-XXXXXX";
};

const Folder& TheFolder()
{
    static const Folder folder;
    return folder;
}

std::u16string Wide(const std::string& text)
{
    return {text.begin(), text.end()};
}

// Sections with twenty keys each.
std::string MakeFile(const std::string& name, int sections, bool isShuffled)
{
    constexpr int kKeys = 20;
    std::minstd_rand random(1);
    std::vector<std::string> texts;
    for (int section = 0; section < sections; ++section) {
        std::vector<std::string> lines;
        for (int key = 0; key < kKeys; ++key) {
            char line[64];
            std::snprintf(line, sizeof line, "Setting%02d=value %d\n", key, section * key);
            lines.emplace_back(line);
        }
        if (isShuffled) {
            std::shuffle(lines.begin(), lines.end(), random);
        }
        char head[64];
        std::snprintf(head, sizeof head, "[QV_HKEY_CONFIG\\Part%04d]\n", section);
        texts.emplace_back(head);
        for (const std::string& line : lines) {
            texts.back() += line;
        }
    }
    if (isShuffled) {
        std::shuffle(texts.begin(), texts.end(), random);
    }
    const std::string path = TheFolder().path + "/" + name;
    std::ofstream file(path, std::ios::binary);
    for (const std::string& text : texts) {
        file << text << '\n';
    }
    return path;
}

void Load(benchmark::State& state)
{
    IniFile file(Wide(MakeFile("load", 1000, state.range(0) != 0)).c_str());
    for (auto _ : state) {
        file.Load();
    }
    if (file.Table().Sections().Size() != 1000 || file.HasUnread()) {
        state.SkipWithError("not loaded");
    }
}

void Save(benchmark::State& state)
{
    IniFile file(Wide(MakeFile("save", 1000, false)).c_str());
    for (auto _ : state) {
        file.Save();
    }
    if (!file.IsSaved()) {
        state.SkipWithError("not saved");
    }
}

void BareSave(benchmark::State& state)
{
    const std::string path = MakeFile("bare", 1000, false);
    std::string text(std::filesystem::file_size(path), 0);
    std::ifstream(path).read(text.data(), static_cast<std::streamsize>(text.size()));
    for (auto _ : state) {
        const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
        benchmark::DoNotOptimize(write(file, text.data(), text.size()));
        close(file);
    }
}

void GetValue(benchmark::State& state)
{
    IniFile file(Wide(MakeFile("get", 50, false)).c_str());
    for (auto _ : state) {
        QVWChar value[64];
        std::size_t length = 0;
        if (file.GetValue(u"QV_HKEY_CONFIG\\Part0033", u"Setting07", value, 64, &length) != 0) {
            state.SkipWithError("not found");
        }
        benchmark::DoNotOptimize(value);
    }
}

void BareGet(benchmark::State& state)
{
    const std::string path = MakeFile("get", 50, false);
    std::map<std::u16string, std::map<std::u16string, std::u16string>> sections;
    for (int section = 0; section < 50; ++section) {
        for (int key = 0; key < 20; ++key) {
            char names[2][64];
            std::snprintf(names[0], 64, "QV_HKEY_CONFIG\\Part%04d", section);
            std::snprintf(names[1], 64, "Setting%02d", key);
            sections[Wide(names[0])][Wide(names[1])] = u"value 123";
        }
    }
    sem_t* const lock = sem_open("/qvcore6-bench", O_CREAT, 0600, 1);
    for (auto _ : state) {
        struct stat status = {};
        QVWChar value[64];
        sem_wait(lock);
        benchmark::DoNotOptimize(stat(path.c_str(), &status));
        const auto& keys = sections.find(u"QV_HKEY_CONFIG\\Part0033")->second;
        const std::u16string& found = keys.find(u"Setting07")->second;
        std::copy_n(found.c_str(), found.size() + 1, value);
        sem_post(lock);
        benchmark::DoNotOptimize(value);
    }
    sem_close(lock);
    sem_unlink("/qvcore6-bench");
}

void SetValue(benchmark::State& state)
{
    IniFile file(Wide(MakeFile("set", 50, false)).c_str());
    int number = 0;
    for (auto _ : state) {
        const std::u16string value = Wide(std::to_string(++number));
        file.SetValue(u"QV_HKEY_CONFIG\\Part0033", u"Setting07", value.c_str(), true);
    }
}

#if QV_BENCH_HAS_GLIB
void LoadPeer(benchmark::State& state)
{
    const std::string path = MakeFile("load", 1000, state.range(0) != 0);
    for (auto _ : state) {
        GKeyFile* const file = g_key_file_new();
        if (g_key_file_load_from_file(file, path.c_str(), G_KEY_FILE_NONE, nullptr) == 0) {
            state.SkipWithError("not loaded");
        }
        g_key_file_free(file);
    }
}

void WritePeer(GKeyFile* file, const std::string& path)
{
    gsize size = 0;
    char* const text = g_key_file_to_data(file, &size, nullptr);
    std::FILE* const out = std::fopen(path.c_str(), "w");
    benchmark::DoNotOptimize(std::fwrite(text, 1, size, out));
    std::fclose(out);
    g_free(text);
}

void SavePeer(benchmark::State& state)
{
    const std::string path = MakeFile("peer", 1000, false);
    GKeyFile* const file = g_key_file_new();
    g_key_file_load_from_file(file, path.c_str(), G_KEY_FILE_NONE, nullptr);
    for (auto _ : state) {
        WritePeer(file, path);
    }
    g_key_file_free(file);
}

void SetPeer(benchmark::State& state)
{
    const std::string path = MakeFile("peer", 50, false);
    int number = 0;
    for (auto _ : state) {
        GKeyFile* const file = g_key_file_new();
        g_key_file_load_from_file(file, path.c_str(), G_KEY_FILE_NONE, nullptr);
        const std::string value = std::to_string(++number);
        g_key_file_set_string(file, "QV_HKEY_CONFIG\\Part0033", "Setting07", value.c_str());
        WritePeer(file, path);
        g_key_file_free(file);
    }
}

BENCHMARK(LoadPeer)->Name("ini/load/GKeyFile")->Arg(0)->Arg(1);
BENCHMARK(SavePeer)->Name("ini/save/GKeyFile");
BENCHMARK(SetPeer)->Name("ini/set/GKeyFile");
#endif

constexpr int kSections = 5000; // of twenty values

void Migrate(benchmark::State& state)
{
    std::filesystem::current_path(TheFolder().path);
    for (auto _ : state) {
        state.PauseTiming();
        MakeFile("qvregistry.ini", kSections, false);
        state.ResumeTiming();
        if (QVRegistryMigrate(QV_STORE_INI, 0, QV_STORE_NATIVE, 0) < 0) {
            state.SkipWithError("not migrated");
        }
    }
}

void SetAll(benchmark::State& state)
{
    TheFolder();
    for (auto _ : state) {
        for (int section = 0; section < kSections; ++section) {
            char key[64];
            std::snprintf(key, sizeof key, "Part%04d", section);
            const std::u16string path = Wide(key);
            for (int i = 0; i < 20; ++i) {
                char name[64];
                std::snprintf(name, sizeof name, "Setting%02d", i);
                const std::u16string text = u"value " + Wide(std::to_string(section * i));
                QVRegistrySetValue(QV_HKEY_CONFIG, path.c_str(), Wide(name).c_str(),
                                   QV_REGTYPE_STRING, text.c_str(),
                                   static_cast<std::uint32_t>(2 * text.size() + 2));
            }
        }
    }
}

void SystemInfo(benchmark::State& state)
{
    for (auto _ : state) {
        QVSystemInfo info;
        QVGetSystemInfo(&info, 0);
        benchmark::DoNotOptimize(info);
    }
}

void BareSystemInfo(benchmark::State& state)
{
    for (auto _ : state) {
        for (const char* const path :
             {"/proc/meminfo", "/proc/self/statm", "/sys/devices/system/cpu/online"}) {
            char text[512];
            const int file = open(path, O_RDONLY | O_CLOEXEC);
            benchmark::DoNotOptimize(read(file, text, sizeof text));
            close(file);
        }
        rlimit limit = {};
        utsname name = {};
        getrlimit(RLIMIT_AS, &limit);
        uname(&name);
        benchmark::DoNotOptimize(name);
    }
}

BENCHMARK(Load)->Name("ini/load/IniFile")->Arg(0)->Arg(1);
BENCHMARK(Save)->Name("ini/save/IniFile");
BENCHMARK(BareSave)->Name("ini/save/bare");
BENCHMARK(GetValue)->Name("ini/get/IniFile");
BENCHMARK(BareGet)->Name("ini/get/bare");
BENCHMARK(SetValue)->Name("ini/set/IniFile");
BENCHMARK(Migrate)->Name("ini/migrate/QVRegistryMigrate")->Unit(benchmark::kMillisecond);
BENCHMARK(SetAll)->Name("ini/migrate/QVRegistrySetValue")->Unit(benchmark::kMillisecond);
BENCHMARK(SystemInfo)->Name("system/info/QVGetSystemInfo");
BENCHMARK(BareSystemInfo)->Name("system/info/bare");

const bool g_added = bench::AddGoals({
    {"load, in order", "ini/load/IniFile/0", "ini/load/GKeyFile/0", 0.35},
    {"load, shuffled", "ini/load/IniFile/1", "ini/load/GKeyFile/1", 0.5},
    {"save", "ini/save/IniFile", "ini/save/GKeyFile", 0.4},
    {"save", "ini/save/IniFile", "ini/save/bare", 1.2},
    {"get a value", "ini/get/IniFile", "ini/get/bare", 1.3},
    {"set a value", "ini/set/IniFile", "ini/set/GKeyFile", 0.6},
    {"migrate 100,000 values", "ini/migrate/QVRegistryMigrate", "ini/migrate/QVRegistrySetValue",
     1.2},
    {"system information", "system/info/QVGetSystemInfo", "system/info/bare", 1.2},
});

} // namespace
