#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <unistd.h>

/// Shows the runs as the console reporter does and keeps each benchmark's
/// median time per iteration (the Time column: real time, or the manual time
/// the benchmark sets), so that a benchmark program can print a summary from
/// the times of the same run. With repetitions the median is the library's
/// "median" aggregate; without, the median of the runs seen.
/// Benchmarks are named by function and arguments ("BM_Frame/100"), without
/// the suffixes the library adds for manual time or aggregates.
class MedianReporter : public benchmark::ConsoleReporter {
public:
    /// Colours only on a terminal, so that output sent to a file stays text.
    MedianReporter() : ConsoleReporter(isatty(fileno(stdout)) ? OO_ColorTabular : OO_Tabular) {}

    void ReportRuns(const std::vector<Run>& runs) override {
        benchmark::ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            const std::string name = keyOf(run);
            if (run.error_occurred) {
                failed.insert(name);
                continue;
            }
            const double ns =
                run.GetAdjustedRealTime() * 1e9 / benchmark::GetTimeUnitMultiplier(run.time_unit);
            if (run.run_type == Run::RT_Aggregate) {
                if (run.aggregate_name == "median")
                    medians[name] = ns;
            } else {
                samples[name].push_back(ns);
            }
        }
    }

    /// The median time per iteration in nanoseconds; negative for a
    /// benchmark that failed or was filtered out.
    double medianNs(const std::string& name) const {
        if (failed.count(name) != 0)
            return -1;
        const auto aggregate = medians.find(name);
        if (aggregate != medians.end())
            return aggregate->second;
        const auto found = samples.find(name);
        if (found == samples.end() || found->second.empty())
            return -1;
        std::vector<double> v = found->second;
        std::sort(v.begin(), v.end());
        const std::size_t n = v.size();
        return n % 2 == 1 ? v[n / 2] : 0.5 * (v[n / 2 - 1] + v[n / 2]);
    }

private:
    static std::string keyOf(const Run& run) {
        const benchmark::BenchmarkName& n = run.run_name;
        return n.args.empty() ? n.function_name : n.function_name + "/" + n.args;
    }

    std::map<std::string, double> medians;
    std::map<std::string, std::vector<double>> samples;
    std::set<std::string> failed;
};
