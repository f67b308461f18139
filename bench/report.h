// Collects what the benchmarks measured and prints it as a table, each figure beside its bound.
#pragma once

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

// A line of the table. The figure is a time in seconds, a factor or a size in megabytes.
struct figure {
    std::string what;
    double value;
    std::string unit;    // "s", "x", "MB"
    double bound;        // 0: none
    std::string beside;  // what the bound was taken from, if it was measured
};

// Adds a line that was not measured by the benchmark library itself.
void add_figure(const figure &line);

// What a benchmark is told to be held against.
void set_time_bound(const std::string &benchmark, double seconds);
// The time for twice the data divided by the time for the data.
void set_growth_bound(const std::string &benchmark, int data, double factor);

// Prints progress while the benchmarks run, keeps their times, and prints the table at the end.
class table_reporter : public benchmark::BenchmarkReporter {
 public:
    bool ReportContext(const Context &) override {
        return true;
    }
    void ReportRuns(const std::vector<Run> &runs) override;
    // Result: whether every figure keeps its bound.
    bool print_table();
};
