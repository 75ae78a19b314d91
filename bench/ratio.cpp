#include "ratio.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <vector>

namespace bench
{

namespace
{

std::vector<Goal>& Goals()
{
    static std::vector<Goal> goals;
    return goals;
}

struct Sample
{
    double median;
    double noise; // half the distance of the quartiles, as a part of the median
};

double Quantile(const std::vector<double>& sorted, double part)
{
    return sorted[static_cast<std::size_t>(part * static_cast<double>(sorted.size() - 1) + 0.5)];
}

class Collector : public benchmark::BenchmarkReporter
{
public:
    bool ReportContext(const Context&) override { return true; }

    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs) {
            const std::string& args = run.run_name.args;
            const std::string name = run.run_name.function_name + (args.empty() ? "" : "/" + args);
            if (run.error_occurred) {
                std::printf("%s: %s\n", name.c_str(), run.error_message.c_str());
            } else if (run.run_type == Run::RT_Iteration) {
                const double nanoseconds = run.GetAdjustedRealTime() * 1e9 /
                                           benchmark::GetTimeUnitMultiplier(run.time_unit);
                m_times[name].push_back(nanoseconds);
            }
        }
    }

    bool Find(const std::string& name, Sample& sample)
    {
        const auto found = m_times.find(name);
        if (found == m_times.end()) {
            return false;
        }
        std::vector<double>& times = found->second;
        std::sort(times.begin(), times.end());
        sample.median = Quantile(times, 0.5);
        sample.noise = (Quantile(times, 0.75) - Quantile(times, 0.25)) / 2 / sample.median;
        return true;
    }

private:
    std::map<std::string, std::vector<double>> m_times;
};

} // namespace

bool AddGoals(std::initializer_list<Goal> goals)
{
    Goals().insert(Goals().end(), goals);
    return true;
}

void RunAndPrint()
{
    Collector collector;
    benchmark::RunSpecifiedBenchmarks(&collector);
    std::printf("%-46s %-26s %10s %10s %7s %7s %6s  %s\n", "path", "beside", "ours ns", "peer ns",
                "ratio", "at most", "noise", "");
    for (const Goal& goal : Goals()) {
        Sample ours{};
        Sample peer{};
        if (!collector.Find(goal.ours, ours) || !collector.Find(goal.peer, peer)) {
            continue;
        }
        const double ratio = ours.median / peer.median;
        const char* verdict = goal.atMost <= 0 ? "" : ratio <= goal.atMost ? "met" : "MISSED";
        std::printf("%-46s %-26s %10.1f %10.1f %7.3f %7.2f %5.1f%%  %s\n", goal.path.c_str(),
                    goal.peer.c_str(), ours.median, peer.median, ratio, goal.atMost,
                    100 * (ours.noise + peer.noise), verdict);
    }
}

} // namespace bench
