// Files: open and close, small reads and writes, ranges, a copy.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <qvcore6/file.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string>

#include "ratio.h"

namespace
{

// A file of 64 MiB, gone with the program.
class Sample
{
public:
    Sample()
    {
        const int file = mkstemp(m_path.data());
        const std::string megabyte(1 << 20, 'x');
        for (int i = 0; i < 64; ++i) {
            benchmark::DoNotOptimize(write(file, megabyte.data(), megabyte.size()));
        }
        close(file);
    }
    ~Sample() { unlink(m_path.c_str()); }
    Sample(const Sample&) = delete;
    Sample& operator=(const Sample&) = delete;

    const char* Path() const { return m_path.c_str(); }
    std::u16string WidePath() const { return {m_path.begin(), m_path.end()}; }

private:
    std::string m_path = "/tmp/qvcore6-bench-XXXXXX";
};

const Sample& TheSample()
{
    static const Sample sample;
    return sample;
}

void OpenOurs(benchmark::State& state)
{
    const std::u16string path = TheSample().WidePath();
    for (auto _ : state) {
        QVHandle file;
        QVFileOpen(path.c_str(), QV_FILE_READ, 0, &file);
        QVFileClose(file);
    }
}

void OpenBare(benchmark::State& state)
{
    for (auto _ : state) {
        close(open(TheSample().Path(), O_RDONLY | O_CLOEXEC));
    }
}

// From the start of the file on, and back there so seldom that it does not count.
template <bool reads, bool isOurs> void Small(benchmark::State& state)
{
    QVHandle file;
    QVFileOpen(TheSample().WidePath().c_str(), QV_FILE_READ | QV_FILE_WRITE, 0, &file);
    std::array<char, 64> bytes{};
    unsigned round = 0;
    for (auto _ : state) {
        uint32_t count = 0;
        if (round++ % 4096 == 0) {
            lseek(file, 0, SEEK_SET);
        }
        if constexpr (isOurs) {
            reads ? QVFileRead(file, bytes.data(), bytes.size(), &count)
                  : QVFileWrite(file, bytes.data(), bytes.size(), &count);
        } else {
            count = static_cast<uint32_t>(reads ? read(file, bytes.data(), bytes.size())
                                                : write(file, bytes.data(), bytes.size()));
        }
        benchmark::DoNotOptimize(count);
    }
    QVFileClose(file);
}

void LockOurs(benchmark::State& state)
{
    QVHandle file;
    QVFileOpen(TheSample().WidePath().c_str(), QV_FILE_READ | QV_FILE_WRITE, 0, &file);
    for (auto _ : state) {
        QVFileLock(file, 100, 10, 0);
        QVFileUnlock(file, 100, 10);
    }
    QVFileClose(file);
}

void LockBare(benchmark::State& state)
{
    const int file = open(TheSample().Path(), O_RDWR | O_CLOEXEC);
    for (auto _ : state) {
        for (const short type : {short{F_WRLCK}, short{F_UNLCK}}) {
            struct flock lock = {};
            lock.l_type = type;
            lock.l_start = 100;
            lock.l_len = 10;
            fcntl(file, F_OFD_SETLK, &lock);
        }
    }
    close(file);
}

void CopyOurs(benchmark::State& state)
{
    const std::u16string from = TheSample().WidePath();
    const std::u16string to = from + u".copy";
    for (auto _ : state) {
        QVFileCopy(from.c_str(), to.c_str(), QV_FILE_CREATE | QV_FILE_TRUNCATE, 0644, nullptr);
    }
    QVFileDelete(to.c_str());
}

void CopyBare(benchmark::State& state)
{
    const std::string to = std::string(TheSample().Path()) + ".copy";
    static std::array<char, 16384> piece;
    for (auto _ : state) {
        const int source = open(TheSample().Path(), O_RDONLY | O_CLOEXEC);
        const int target = open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        for (ssize_t size; (size = read(source, piece.data(), piece.size())) > 0;) {
            benchmark::DoNotOptimize(write(target, piece.data(), static_cast<std::size_t>(size)));
        }
        close(source);
        close(target);
    }
    unlink(to.c_str());
}

bool AddAll()
{
    benchmark::RegisterBenchmark("file/open/QVFile", OpenOurs);
    benchmark::RegisterBenchmark("file/open/bare", OpenBare);
    benchmark::RegisterBenchmark("file/read/QVFile", Small<true, true>);
    benchmark::RegisterBenchmark("file/read/bare", Small<true, false>);
    benchmark::RegisterBenchmark("file/write/QVFile", Small<false, true>);
    benchmark::RegisterBenchmark("file/write/bare", Small<false, false>);
    benchmark::RegisterBenchmark("file/lock/QVFile", LockOurs);
    benchmark::RegisterBenchmark("file/lock/bare", LockBare);
    benchmark::RegisterBenchmark("file/copy/QVFile", CopyOurs);
    benchmark::RegisterBenchmark("file/copy/bare", CopyBare);
    return true;
}

const bool g_registered = AddAll();

const bool g_added = bench::AddGoals({
    {"file, open and close", "file/open/QVFile", "file/open/bare", 1.2},
    {"file, read 64 bytes", "file/read/QVFile", "file/read/bare", 1.1},
    {"file, write 64 bytes", "file/write/QVFile", "file/write/bare", 1.1},
    {"file, lock and unlock", "file/lock/QVFile", "file/lock/bare", 1.2},
    {"file, copy 64 MiB", "file/copy/QVFile", "file/copy/bare", 1.05},
});

} // namespace
