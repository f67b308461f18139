// Runs the benchmarks and prints their table. Its place is the throwaway root: it fills the fixed
// paths of the repository.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "bench/bench.h"
#include "bench/report.h"
#include "repository/repository.h"
#include "repository/vrc.h"

namespace fs = std::filesystem;

const std::string bench_dir = "/var/tmp/vrm-bench";

vrm_handle *open_repository(const std::string &root) {
    for (const char *dir : {"installed", "stagearea", "fileindex", "certstore", "scriptdir"}) {
        fs::create_directories(root + "/" + dir);
    }
    const std::string conf = root + ".conf";
    std::ofstream(conf) << "arch_name = x86_64\n";
    return vrm_open(root.c_str(), conf.c_str());
}

vrm_handle *bench_repository() {
    static vrm_handle *const handle = open_repository(bench_dir + "/empty");
    return handle;
}

void *connect_backend(const std::string &dir, const std::string &index) {
    fs::create_directories(index);
    s_ekva **conf = ekva_new(4, 2);  // valid for the life of the process, as backends may count on
    ekva_addval(&conf, "vrc_dirs", dir.c_str(), 0);
    ekva_addval(&conf, "vrc_dirs_cache", index.c_str(), 0);
    void *connection = pvrm_vrc_connect(conf, nullptr);
    if (!connection || pvrm_vrc_refresh(connection) != 0) {
        fprintf(stderr, "bench: the backend can't read %s\n", dir.c_str());
        exit(1);
    }
    return connection;
}

int main(int argc, char **argv) {
    const bool in_sandbox =
        getenv("VRM_IN_SANDBOX") || (argc > 1 && strcmp(argv[1], "--here") == 0);
    if (!in_sandbox) {
        fprintf(stderr, "bench: run scripts/bench, which gives a throwaway root to this program\n");
        return 1;
    }
    fs::create_directories(bench_dir);
    if (argc > 1 && strcmp(argv[1], "--disk") == 0) {
        return measure_disk(argc - 2, argv + 2);
    }
    if (!vrm_vrc_load("/usr/lib/vrm/vrc-dirs.so")) {
        return 1;
    }
    set_catalogue_bounds();
    set_inventory_bounds();
    set_update_bounds();
    set_history_bounds();
    benchmark::Initialize(&argc, argv);
    table_reporter reporter;
    // With VRM_BENCH_ONLY in the environment only the functions are measured.
    if (!getenv("VRM_BENCH_ONLY")) {
        // The commands come first: a child's peak memory begins with that of the process it came
        // from.
        measure_commands();
        measure_changes();
        measure_audits();
    }
    benchmark::RunSpecifiedBenchmarks(&reporter);
    measure_cache_memory();
    return reporter.print_table() ? 0 : 1;
}
