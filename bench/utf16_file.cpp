// Lines of a text file in UTF-16, beside ICU's bare call.
#include "ratio.h"

#include <benchmark/benchmark.h>
#include <qvcore6/utf16file.h>
#include <unicode/ustdio.h>

#include <unistd.h>

#include <cstdlib>
#include <string>

namespace
{

constexpr int kLines = 100'000;

class File
{
public:
    File()
    {
        close(mkstemp(m_path.data()));
        UFILE* const file = QVFileOpenUTF16(m_path.c_str(), "w");
        const std::u16string line =
            u"The quick brown fox jumps over the lazy dog, or some part of it";
        for (int i = 0; i < kLines; ++i) {
            QVFileWriteLineUTF16(line.c_str() + i % 40, file);
        }
        QVFileCloseUTF16(file);
    }
    ~File() { unlink(m_path.c_str()); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    const char* Path() const { return m_path.c_str(); }

private:
    std::string m_path = "/tmp/qvcore6-bench-XXXXXX";
};

template <class Read> void ReadAll(benchmark::State& state, Read read)
{
    const File made;
    char16_t line[256];
    for (auto _ : state) {
        UFILE* const file = u_fopen(made.Path(), "r", nullptr, "UTF-16");
        while (read(line, 256, file) != nullptr) {
            benchmark::DoNotOptimize(line);
        }
        u_fclose(file);
    }
}

bool AddAll()
{
    benchmark::RegisterBenchmark("utf16_file/QVFileGetLineUTF16", [](benchmark::State& state) {
        ReadAll(state, QVFileGetLineUTF16);
    })->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("utf16_file/u_fgets", [](benchmark::State& state) {
        ReadAll(state, u_fgets);
    })->Unit(benchmark::kMillisecond);
    return true;
}

const bool g_registered = AddAll();
const bool g_added = bench::AddGoals(
    {{"100,000 lines", "utf16_file/QVFileGetLineUTF16", "utf16_file/u_fgets", 1.1}});

} // namespace
