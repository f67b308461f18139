// The inventory: listing what is installed, and finding the owner of a file.

#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>

#include "bench/bench.h"
#include "bench/data.h"
#include "bench/report.h"
#include "repository/inventory.h"
#include "repository/owner_lookup.h"
#include "support/own.h"

namespace fs = std::filesystem;

namespace {

constexpr size_t files_a_package = 100;

// A handle of an inventory of `size` packages; made once.
vrm_handle *inventory_of(int64_t size) {
    static std::map<int64_t, vrm_handle *> handles;
    vrm_handle *&handle = handles[size];
    if (!handle) {
        const std::string root = bench_dir + "/inventory-" + std::to_string(size);
        write_inventory(root, make_packages(static_cast<size_t>(size)), files_a_package);
        handle = open_repository(root);
    }
    return handle;
}

}  // namespace

static void ListInstalled(benchmark::State &state) {
    vrm_handle *handle = inventory_of(state.range(0));
    for (auto _ : state) {
        vri **list = nullptr;
        vrm_list_vri(handle, nullptr, 1, &list);
        vrm_vri_list_free(list);
    }
}
BENCHMARK(ListInstalled)->Arg(3000)->Arg(6000)->Unit(benchmark::kMillisecond);

// A file that no index holds: all of them are searched.
static void FileOwner(benchmark::State &state) {
    vrm_handle *handle = inventory_of(state.range(0));
    const std::string path = bench_dir + "/nobodys";
    std::ofstream(path) << "x";
    for (auto _ : state) {
        own_string owner(vrm_file_owner(handle, path.c_str()));
    }
}
BENCHMARK(FileOwner)->Arg(3000)->Arg(6000)->Unit(benchmark::kMillisecond);

void set_inventory_bounds() {
    set_growth_bound("ListInstalled", 3000, 2.4);
    set_growth_bound("FileOwner", 3000, 2.4);
}
