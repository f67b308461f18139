// Planning the updates of all installed packages.

#include <benchmark/benchmark.h>

#include <filesystem>

#include "bench/bench.h"
#include "bench/data.h"
#include "bench/report.h"
#include "repository/inventory.h"
#include "support/own.h"
#include "transaction/plan_update.h"
#include "transaction/vrt.h"

namespace {

// Every other package is of an older version than the catalogue's.
vrm_handle *inventory_with_old_packages(int64_t size) {
    static std::map<int64_t, vrm_handle *> handles;
    vrm_handle *&handle = handles[size];
    if (!handle) {
        const std::string root = bench_dir + "/updates-" + std::to_string(size);
        auto packages = make_packages(static_cast<size_t>(size));
        for (size_t i = 0; i < packages.size(); i += 2) {
            packages[i].version = "0";
        }
        write_inventory(root, packages, 1);
        handle = open_repository(root);
    }
    return handle;
}

void plan_all(benchmark::State &state, int64_t installed, int64_t catalogue) {
    void *connection = with_cache_of(catalogue);
    vrm_handle *handle = inventory_with_old_packages(installed);
    for (auto _ : state) {
        const own_array names(vrm_list_arr(handle, 1));
        int64_t found = 0;
        for (char *const *name = names.get(); name && *name; name++) {
            vrt *plan = nullptr;
            vrm_pre_update(handle, connection, *name, nullptr, nullptr, nullptr, &plan);
            found += plan ? 1 : 0;
            vrt_free(plan);
        }
        if (found != installed / 2) {
            state.SkipWithError("not every old package has an update");
        }
    }
}

}  // namespace

static void PlanUpdates(benchmark::State &state) {
    plan_all(state, state.range(0), 60000);
}
BENCHMARK(PlanUpdates)->Arg(3000)->Arg(6000)->Unit(benchmark::kMillisecond);

// For the same packages, from catalogues of this size.
static void PlanUpdatesFrom(benchmark::State &state) {
    plan_all(state, 3000, state.range(0));
}
BENCHMARK(PlanUpdatesFrom)->Arg(60000)->Arg(120000)->Unit(benchmark::kMillisecond);

void set_update_bounds() {
    set_growth_bound("PlanUpdates", 3000, 2.4);
    // With the catalogue it doesn't grow; what is allowed here is noise.
    set_growth_bound("PlanUpdatesFrom", 60000, 1.3);
}
