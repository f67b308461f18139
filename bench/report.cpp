#include "bench/report.h"

#include <cstdio>
#include <map>

namespace {

struct growth {
    std::string benchmark;
    int data;
    double factor;
};

std::map<std::string, double> times;  // seconds by the full name of the benchmark
std::vector<std::string> order;
std::map<std::string, double> time_bounds;
std::vector<growth> growths;
std::vector<figure> more;

std::string told(double value, const std::string &unit) {
    char text[64];
    if (unit == "s") {
        snprintf(text, sizeof text, value < 0.001 ? "%.1f us" : "%.2f ms",
                 value < 0.001 ? value * 1e6 : value * 1e3);
    } else {
        snprintf(text, sizeof text, unit == "MB" ? "%.1f %s" : "%.2f %s", value, unit.c_str());
    }
    return text;
}

bool print_line(const figure &line) {
    const bool kept = line.bound == 0 || line.value <= line.bound;
    printf(
        "%-62s %12s %14s  %s\n", line.what.c_str(), told(line.value, line.unit).c_str(),
        line.bound == 0 ? "" : ("<= " + told(line.bound, line.unit)).c_str(),
        line.bound == 0
            ? line.beside.c_str()
            : ((kept ? "ok" : "OVER") + (line.beside.empty() ? "" : ", " + line.beside)).c_str());
    return kept;
}

}  // namespace

void add_figure(const figure &line) {
    more.push_back(line);
}

void set_time_bound(const std::string &benchmark, double seconds) {
    time_bounds[benchmark] = seconds;
}

void set_growth_bound(const std::string &benchmark, int data, double factor) {
    growths.push_back({benchmark, data, factor});
}

void table_reporter::ReportRuns(const std::vector<Run> &runs) {
    for (const Run &run : runs) {
        if (run.error_occurred) {
            fprintf(stderr, "bench: %s: %s\n", run.benchmark_name().c_str(),
                    run.error_message.c_str());
            continue;
        }
        const std::string name =
            run.run_name.function_name + (run.run_name.args.empty() ? "" : "/") + run.run_name.args;
        const double seconds = run.real_accumulated_time / static_cast<double>(run.iterations);
        if (!times.contains(name)) {
            order.push_back(name);
            times[name] = seconds;
        }
        times[name] = std::min(times[name], seconds);
        fprintf(stderr, "bench: %s\n", name.c_str());
    }
}

bool table_reporter::print_table() {
    bool kept = true;
    printf("%-62s %12s %14s\n", "Measured", "figure", "bound");
    for (const std::string &name : order) {
        kept = print_line({name, times[name], "s", time_bounds[name], ""}) && kept;
    }
    for (const growth &one : growths) {
        const std::string small = one.benchmark + "/" + std::to_string(one.data);
        const std::string large = one.benchmark + "/" + std::to_string(2 * one.data);
        if (times.contains(small) && times.contains(large)) {
            kept = print_line({one.benchmark + ", twice the data", times[large] / times[small], "x",
                               one.factor, ""}) &&
                   kept;
        }
    }
    for (const figure &line : more) {
        kept = print_line(line) && kept;
    }
    return kept;
}
