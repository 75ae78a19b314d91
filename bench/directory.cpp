// A folder of ten thousand files, with the size and the time of each.
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <qvcore6/directory.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "ratio.h"

namespace
{

constexpr int kFiles = 10'000;

// Gone with the program.
class Sample
{
public:
    Sample()
    {
        benchmark::DoNotOptimize(mkdtemp(m_path.data()));
        constexpr int kDays = 1000; // over which a folder has filled
        const auto now = std::filesystem::file_time_type::clock::now();
        for (int i = 0; i < kFiles; ++i) {
            const std::string path = m_path + "/some-file-" + std::to_string(i) + ".txt";
            std::ofstream(path) << i;
            std::filesystem::last_write_time(path, now - std::chrono::days(i % kDays));
        }
    }
    ~Sample() { std::filesystem::remove_all(m_path); }
    Sample(const Sample&) = delete;
    Sample& operator=(const Sample&) = delete;

    const std::string& Path() const { return m_path; }

private:
    std::string m_path = "/tmp/qvcore6-bench-XXXXXX";
};

const std::string& SamplePath()
{
    static const Sample sample;
    return sample.Path();
}

void Ours(benchmark::State& state)
{
    const std::u16string path(SamplePath().begin(), SamplePath().end());
    for (auto _ : state) {
        QVDir folder;
        QVDirEntry entry;
        uint64_t sum = 0;
        QVDirOpen(path.c_str(), &folder);
        while (QVDirRead(folder, &entry, 0) >= 0) {
            sum += entry.m_sizeLow + static_cast<uint32_t>(entry.m_writeTime);
        }
        QVDirClose(folder);
        benchmark::DoNotOptimize(sum);
    }
}

void Bare(benchmark::State& state)
{
    for (auto _ : state) {
        DIR* const folder = opendir(SamplePath().c_str());
        uint64_t sum = 0;
        while (const dirent* const entry = readdir(folder)) {
            struct statx file;
            statx(dirfd(folder), entry->d_name, 0, STATX_BASIC_STATS | STATX_BTIME, &file);
            sum += file.stx_size + static_cast<uint64_t>(file.stx_mtime.tv_sec);
        }
        closedir(folder);
        benchmark::DoNotOptimize(sum);
    }
}

void Standard(benchmark::State& state)
{
    for (auto _ : state) {
        uint64_t sum = 0;
        for (const auto& entry : std::filesystem::directory_iterator(SamplePath())) {
            sum += entry.file_size() +
                   static_cast<uint64_t>(entry.last_write_time().time_since_epoch().count());
        }
        benchmark::DoNotOptimize(sum);
    }
}

bool AddAll()
{
    benchmark::RegisterBenchmark("directory/QVDir", Ours);
    benchmark::RegisterBenchmark("directory/readdir", Bare);
    benchmark::RegisterBenchmark("directory/filesystem", Standard);
    return true;
}

const bool g_registered = AddAll();

const bool g_added = bench::AddGoals({
    {"directory, 10,000 entries", "directory/QVDir", "directory/readdir", 1.1},
    {"directory, 10,000 entries", "directory/QVDir", "directory/filesystem", 0.5},
});

} // namespace
