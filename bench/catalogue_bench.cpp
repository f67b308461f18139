// The catalogue in memory: filling the cache, searching it, planning from it; and what the default
// backend needs for a refresh.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstdlib>
#include <filesystem>

#include "bench/bench.h"
#include "bench/data.h"
#include "bench/report.h"
#include "repository/choice.h"
#include "repository/vrc.h"
#include "support/own.h"
#include "transaction/plan_install.h"

namespace fs = std::filesystem;

namespace {

// A connection of the backend to a generated catalogue of `size` packages. The package files are
// made once; each size has its own.
void *catalogue_of(int64_t size) {
    static std::map<int64_t, void *> connections;
    void *&connection = connections[size];
    if (!connection) {
        const std::string dir = bench_dir + "/catalogue-" + std::to_string(size);
        make_catalogue(dir, static_cast<size_t>(size));
        connection = connect_backend(dir, bench_dir + "/index-" + std::to_string(size));
    }
    return connection;
}

std::string name_in_the_middle() {
    size_t count = 0;
    while (vrc_cache[count]) {
        count++;
    }
    return vrc_cache[count / 2]->name;
}

void find(benchmark::State &state, const char *name, s_ekva **filter) {
    void *connection = with_cache_of(state.range(0));
    for (auto _ : state) {
        vri **found = nullptr;
        benchmark::DoNotOptimize(
            vrm_findpkg(connection, name, nullptr, nullptr, 5, filter, &found));
        vrm_vri_list_free(found);
    }
}

}  // namespace

void *with_cache_of(int64_t size) {
    static int64_t filled = 0;
    void *connection = catalogue_of(size);
    if (filled != size) {
        vrm_cache_free(vrc_cache);
        vrc_cache = vrm_vrc_cache_fill(connection);
        filled = size;
    }
    return connection;
}

static void FillCache(benchmark::State &state) {
    void *connection = catalogue_of(state.range(0));
    for (auto _ : state) {
        vri **cache = vrm_vrc_cache_fill(connection);
        state.PauseTiming();
        vrm_cache_free(cache);
        state.ResumeTiming();
    }
}
BENCHMARK(FillCache)->Arg(60000)->Arg(120000)->Unit(benchmark::kMillisecond);

static void FindByName(benchmark::State &state) {
    with_cache_of(state.range(0));
    const std::string name = name_in_the_middle();
    find(state, name.c_str(), nullptr);
}
BENCHMARK(FindByName)->Arg(60000)->Arg(120000);

static void FindByPattern(benchmark::State &state) {
    find(state, "lib*net*-dev", nullptr);
}
BENCHMARK(FindByPattern)->Arg(60000)->Arg(120000)->Unit(benchmark::kMillisecond);

static void FindByDescription(benchmark::State &state) {
    s_ekva **filter = ekva_new(1, 4);
    ekva_addval(&filter, "evrkDescription", "*compiler for*", 0);
    find(state, "*compiler for*", filter);
    ekva_free(filter);
}
BENCHMARK(FindByDescription)->Arg(60000)->Arg(120000)->Unit(benchmark::kMillisecond);

static void FindNewestOfAll(benchmark::State &state) {
    void *connection = with_cache_of(state.range(0));
    for (auto _ : state) {
        vri **found = nullptr;
        vrm_findpkg_new(bench_repository(), connection, "*", nullptr, nullptr, 1, &found);
        vrm_vri_list_free(found);
    }
}
BENCHMARK(FindNewestOfAll)->Arg(60000)->Arg(120000)->Unit(benchmark::kMillisecond);

static void Plan300Dependencies(benchmark::State &state) {
    void *connection = with_cache_of(state.range(0));
    for (auto _ : state) {
        vrt *plan = nullptr;
        vrm_pre_install(bench_repository(), connection, "bench-top", nullptr, nullptr, nullptr,
                        &plan);
        if (!plan || plan->num_deps != 300) {
            state.SkipWithError("no plan with 300 dependencies");
        }
        vrt_free(plan);
    }
}
BENCHMARK(Plan300Dependencies)->Arg(60000)->Arg(120000)->Unit(benchmark::kMillisecond);

static void RefreshFirst(benchmark::State &state) {
    const std::string dir = bench_dir + "/refresh-" + std::to_string(state.range(0));
    if (!fs::exists(dir)) {
        write_catalogue(dir, make_packages(static_cast<size_t>(state.range(0))));
    }
    int number = 0;
    for (auto _ : state) {
        state.PauseTiming();
        const std::string index = dir + "-index-" + std::to_string(number++);
        state.ResumeTiming();
        connect_backend(dir, index);  // makes a first refresh
        state.PauseTiming();
        fs::remove_all(index);
        state.ResumeTiming();
    }
}
BENCHMARK(RefreshFirst)->Arg(2000)->Arg(4000)->Unit(benchmark::kMillisecond)->Iterations(5);

static void RefreshUnchanged(benchmark::State &state) {
    const std::string dir = bench_dir + "/refresh-" + std::to_string(state.range(0));
    void *connection = connect_backend(dir, dir + "-index");
    for (auto _ : state) {
        pvrm_vrc_refresh(connection);
    }
}
BENCHMARK(RefreshUnchanged)->Arg(2000)->Arg(4000)->Unit(benchmark::kMillisecond);

void measure_cache_memory() {
    vrm_cache_free(vrc_cache);
    vrc_cache = nullptr;
    void *connection = catalogue_of(60000);
    malloc_trim(0);
    const size_t before = mallinfo2().uordblks;
    vri **cache = vrm_vrc_cache_fill(connection);
    const size_t after = mallinfo2().uordblks;
    vrm_cache_free(cache);
    add_figure({"memory of 60000 records in the cache", static_cast<double>(after - before) / 1e6,
                "MB", 150, ""});
}

void set_catalogue_bounds() {
    for (const char *name :
         {"FillCache", "FindByPattern", "FindByDescription", "FindNewestOfAll"}) {
        set_growth_bound(name, 60000, 2.4);
    }
    // An exact name doesn't grow with the catalogue; what is allowed here is noise.
    set_growth_bound("FindByName", 60000, 1.3);
    set_growth_bound("Plan300Dependencies", 60000, 1.3);
    set_growth_bound("RefreshFirst", 2000, 2.4);
    set_growth_bound("RefreshUnchanged", 2000, 2.4);
}
