// Runs the registered Google Benchmarks and prints the figures asked for:
//   figure <name> <value>
// A ratio figure divides one benchmark's time per iteration by its baseline's,
// both measured in this same run. A plain figure prints one benchmark's time
// in the unit it asks for.
#pragma once

#include <benchmark/benchmark.h>

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
};

class FigureReporter : public benchmark::ConsoleReporter {
public:
    // Plain text: colour codes would stand before the first figure line and
    // hide it from `grep '^figure '`.
    FigureReporter() : ConsoleReporter(OO_Tabular) {}

    void ReportRuns(std::vector<Run> const& runs) override
    {
        for (Run const& run : runs) {
            if (run.run_type == Run::RT_Iteration && run.error_occurred == false)
                nanos[run.benchmark_name()] = run.GetAdjustedRealTime() *
                                              (run.time_unit == benchmark::kMicrosecond   ? 1e3
                                               : run.time_unit == benchmark::kMillisecond ? 1e6
                                               : run.time_unit == benchmark::kSecond      ? 1e9
                                                                                          : 1.0);
        }
        ConsoleReporter::ReportRuns(runs);
    }
    std::map<std::string, double> nanos;
};

inline int runFigures(int argc, char** argv, std::vector<Figure> const& figures)
{
    benchmark::Initialize(&argc, argv);
    FigureReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    int missing = 0;
    for (Figure const& figure : figures) {
        auto value = reporter.nanos.find(figure.benchmark);
        auto base = reporter.nanos.find(figure.baseline);
        if (value == reporter.nanos.end() || (!figure.baseline.empty() && base == reporter.nanos.end())) {
            std::printf("figure %s missing\n", figure.name.c_str());
            ++missing;
            continue;
        }
        double result = figure.baseline.empty()       ? value->second * figure.scale
                        : figure.higherIsBetter ? base->second / value->second
                                                : value->second / base->second;
        std::printf("figure %s %.3f\n", figure.name.c_str(), result);
    }
    std::fflush(stdout);
    return missing == 0 ? 0 : 1;
}

} // namespace VelmoraBench
