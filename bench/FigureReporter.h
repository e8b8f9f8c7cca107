// Runs the registered Google Benchmarks and prints the figures asked for:
//   figure <name> <value>
// A ratio figure divides one benchmark's time per iteration by its baseline's,
// both measured in this same run; with repetitions, each side is its median.
// A plain figure prints one benchmark's time in the unit it asks for. A CPU
// figure takes the benchmarks' CPU times instead of their wall-clock times
// (with MeasureProcessCPUTime, that of every thread of the process).
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace VelmoraBench {

struct Figure {
    std::string name;
    std::string benchmark;
    std::string baseline;     // empty: a plain figure
    double scale = 1.0;       // plain figures: nanoseconds are multiplied by this
    bool higherIsBetter = false; // ratios of throughput: baseline / benchmark
    bool cpu = false;            // compare CPU time, not wall-clock time
};

class FigureReporter : public benchmark::ConsoleReporter {
public:
    // Plain text: colour codes would stand before the first figure line and
    // hide it from `grep '^figure '`.
    FigureReporter() : ConsoleReporter(OO_Tabular) {}

    void ReportRuns(std::vector<Run> const& runs) override
    {
        for (Run const& run : runs) {
            if (run.run_type != Run::RT_Iteration || run.error_occurred)
                continue;
            double const toNanos = run.time_unit == benchmark::kMicrosecond   ? 1e3
                                   : run.time_unit == benchmark::kMillisecond ? 1e6
                                   : run.time_unit == benchmark::kSecond      ? 1e9
                                                                              : 1.0;
            repetitions[run.benchmark_name()].push_back(run.GetAdjustedRealTime() * toNanos);
            cpuRepetitions[run.benchmark_name()].push_back(run.GetAdjustedCPUTime() * toNanos);
        }
        ConsoleReporter::ReportRuns(runs);
    }

    // The median of a benchmark's repetitions in nanoseconds, 0 when it did not run:
    // one disturbed repetition does not move it.
    double nanos(std::string const& name, bool cpu = false)
    {
        auto& times = cpu ? cpuRepetitions : repetitions;
        auto found = times.find(name);
        if (found == times.end())
            return 0;
        std::vector<double>& each = found->second;
        std::nth_element(each.begin(), each.begin() + each.size() / 2, each.end());
        return each[each.size() / 2];
    }

private:
    std::map<std::string, std::vector<double>> repetitions;
    std::map<std::string, std::vector<double>> cpuRepetitions;
};

inline int runFigures(int argc, char** argv, std::vector<Figure> const& figures)
{
    benchmark::Initialize(&argc, argv);
    FigureReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    int missing = 0;
    for (Figure const& figure : figures) {
        double const value = reporter.nanos(figure.benchmark, figure.cpu);
        double const base = figure.baseline.empty() ? 1 : reporter.nanos(figure.baseline, figure.cpu);
        if (value == 0 || base == 0) {
            std::printf("figure %s missing\n", figure.name.c_str());
            ++missing;
            continue;
        }
        double result = figure.baseline.empty() ? value * figure.scale
                        : figure.higherIsBetter ? base / value
                                                : value / base;
        std::printf("figure %s %.3f\n", figure.name.c_str(), result);
    }
    std::fflush(stdout);
    return missing == 0 ? 0 : 1;
}

} // namespace VelmoraBench
