// The history: showing it in each form.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "bench/bench.h"
#include "bench/data.h"
#include "bench/report.h"
#include "kit/scripted_user.h"
#include "maintenance/report.h"
#include "maintenance/show_log.h"

namespace {

// A history of `size` lines; made once.
std::string history_of(int64_t size) {
    std::string path = bench_dir + "/history-" + std::to_string(size);
    if (std::filesystem::exists(path)) {
        return path;
    }
    const auto packages = make_packages(1000);
    std::ofstream out(path);
    for (int64_t i = 0; i < size; i++) {
        const bench_package &package = packages[static_cast<size_t>(i) % packages.size()];
        const std::string id = package.name + "_x86_64_" + package.version;
        char date[40];
        snprintf(date, sizeof date,
                 "2026-%02d-%02d %02d:%02d:%02d: ", static_cast<int>(i / 10000 % 12) + 1,
                 static_cast<int>(i / 400 % 28) + 1, static_cast<int>(i / 60 % 24),
                 static_cast<int>(i / 7 % 60), static_cast<int>(i % 60));
        out << date;
        switch (i % 3) {
            case 0:
                out << "installed " << id;
                break;
            case 1:
                out << "updated " << id << " to " << id << ".1";
                break;
            default:
                out << "deleted " << id << ".1";
        }
        out << (i % 5 == 0 ? " as dependency of other" : " as requested by user") << "\n";
    }
    return path;
}

void show(benchmark::State &state, list_format format) {
    setenv(vrm_showlog_variable, history_of(state.range(0)).c_str(), 1);
    for (auto _ : state) {
        state.PauseTiming();
        ScriptedUser::fresh();  // its text has to grow each time, as that of a process has
        state.ResumeTiming();
        if (vrm_showlog(nullptr, format, 0) != state.range(0)) {
            state.SkipWithError("the history can't be read");
        }
    }
    unsetenv(vrm_showlog_variable);
}

}  // namespace

static void ShowHistoryText(benchmark::State &state) {
    show(state, FORMAT_TEXT);
}
BENCHMARK(ShowHistoryText)->Arg(50000)->Arg(100000)->Unit(benchmark::kMillisecond);

static void ShowHistoryLdif(benchmark::State &state) {
    show(state, FORMAT_LDIF);
}
BENCHMARK(ShowHistoryLdif)->Arg(50000)->Arg(100000)->Unit(benchmark::kMillisecond);

static void ShowHistoryCsv(benchmark::State &state) {
    show(state, FORMAT_DELIMITED);
}
BENCHMARK(ShowHistoryCsv)->Arg(50000)->Arg(100000)->Unit(benchmark::kMillisecond);

static void ShowHistoryRaw(benchmark::State &state) {
    show(state, FORMAT_RAW);
}
BENCHMARK(ShowHistoryRaw)->Arg(50000)->Arg(100000)->Unit(benchmark::kMillisecond);

void set_history_bounds() {
    for (const char *name :
         {"ShowHistoryText", "ShowHistoryLdif", "ShowHistoryCsv", "ShowHistoryRaw"}) {
        set_growth_bound(name, 50000, 2.4);
    }
}
