// The installation, the update and the removal of a package of 20,000 files by the installed tool,
// beside the bare work on the same bytes by standard commands. All go to the system's fixed paths,
// so this runs in the throwaway root only.

#include <algorithm>
#include <filesystem>

#include "bench/bench.h"
#include "bench/commands.h"
#include "bench/many_files.h"
#include "bench/report.h"

namespace fs = std::filesystem;

namespace {

constexpr int runs = 3;

const std::string repository = "/var/lib/vrm";

// One kind of change, as it comes out over the runs.
struct change {
    const char *what;
    double factor;  // how many times the bare work it may take
    std::string bare;
    std::vector<std::string> command;
    double bare_seconds = 1e9;
    double seconds = 1e9;

    void measure() {
        const process_cost plain = cost_of({"bash", bare}, 1);
        must(plain, std::string("the bare work of ") + what);
        bare_seconds = std::min(bare_seconds, plain.seconds);
        const process_cost cost = cost_of(command, 1);
        must(cost, what);
        seconds = std::min(seconds, cost.seconds);
    }
};

}  // namespace

void measure_changes() {
    make_many_files_packages();
    change changes[] = {
        {"pvrm install, 20000 files",
         1,
         bare_install_script(),
         {"pvrm", "install", "--yes", many_files_package(1)}},
        {"pvrm upgrade, 20000 files, half renamed",
         1.5,
         bare_update_script(),
         {"pvrm", "upgrade", "--yes", many_files_package(2)}},
        {"pvrm remove, 20000 files",
         1.5,
         bare_removal_script(),
         {"pvrm", "remove", "--yes", "bench-many"}},
    };
    for (int run = 0; run < runs; run++) {
        for (change &one : changes) {
            one.measure();
        }
        for (const std::string &path : std::vector<std::string>{
                 live_dir, bare_live_dir, repository + "/stagearea/bench-many_any_1.0.vrk",
                 repository + "/stagearea/bench-many_any_2.0.vrk"}) {
            fs::remove_all(path);
        }
    }
    for (const change &one : changes) {
        add_figure({one.what, one.seconds, "s", one.factor * one.bare_seconds,
                    told("bare work", one.bare_seconds)});
    }
}
