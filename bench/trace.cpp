// Traces of 60 characters that nobody receives, beside the C library's stream for errors.
#include "ratio.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <qvcore6/diagnostics.h>
#include <unistd.h>

#include <cstdio>

namespace
{

// The standard error descriptor is closed, or leads nowhere, while one lives.
class Redirected
{
public:
    explicit Redirected(bool isClosed) : m_before(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3))
    {
        std::fflush(stderr);
        if (isClosed) {
            close(STDERR_FILENO);
            return;
        }
        const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(nowhere, STDERR_FILENO);
        close(nowhere);
    }
    ~Redirected()
    {
        dup2(m_before, STDERR_FILENO);
        close(m_before);
        std::clearerr(stderr);
    }
    Redirected(const Redirected&) = delete;
    Redirected& operator=(const Redirected&) = delete;

private:
    int m_before;
};

// Each makes 60 characters.
void TraceNumbers(int i)
{
    QVTrace(u"%hs: %d lines with %u words have been read in %d ms\n", "orders.txt", i, 65432u, 12);
}
void PrintNumbers(int i)
{
    std::fprintf(stderr, "%s: %d lines with %u words have been read in %d ms\n", "orders.txt", i,
                 65432u, 12);
}

void TraceText(int)
{
    QVTrace(u"the service %hs has been started\n", "of the orders on the second floor");
}
void PrintText(int)
{
    std::fprintf(stderr, "the service %s has been started\n", "of the orders on the second floor");
}

template <void (*Write)(int)> void Run(benchmark::State& state)
{
    const Redirected redirected(state.range(0) == 0);
    int i = 1000;
    for (auto _ : state) {
        Write(i);
        i = i == 9999 ? 1000 : i + 1;
    }
}

// 0: closed, 1: open.
template <void (*Write)(int)> void Add(const char* name)
{
    benchmark::RegisterBenchmark(name, Run<Write>)->Arg(0)->Arg(1);
}

bool AddAll()
{
    Add<TraceNumbers>("trace/numbers/QVTrace");
    Add<PrintNumbers>("trace/numbers/fprintf");
    Add<TraceText>("trace/text/QVTrace");
    Add<PrintText>("trace/text/fprintf");
    return true;
}

const bool g_registered = AddAll();

const bool g_added = bench::AddGoals({
    {"trace, closed, three numbers", "trace/numbers/QVTrace/0", "trace/numbers/fprintf/0", 1.0},
    {"trace, closed, one text", "trace/text/QVTrace/0", "trace/text/fprintf/0", 1.0},
    // Two writes beside one.
    {"trace, open, three numbers", "trace/numbers/QVTrace/1", "trace/numbers/fprintf/1", 0},
    {"trace, open, one text", "trace/text/QVTrace/1", "trace/text/fprintf/1", 0},
});

} // namespace
