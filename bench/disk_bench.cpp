// The installed tool on a disk: changes with the sync that makes them durable, each on an image
// made new for the run, beside the bare work on an image of its own in the same run; and words that
// only read. It prints figures beside their bounds, and no bound changes the exit status: with
// other work on the machine these times mean little.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "bench/bench.h"
#include "bench/commands.h"
#include "bench/data.h"
#include "bench/disk_machine.h"
#include "bench/many_files.h"

namespace fs = std::filesystem;

namespace {

constexpr double megabytes_bound = 64;
constexpr size_t small_packages = 200;
constexpr double seconds_a_small_package = 0.025;
constexpr double list_bound = 0.045;
constexpr double planning_bound = 0.25;
constexpr double word_bound = 0.005;

// A quantity over the runs.
struct samples {
    std::vector<double> values;

    void add(double value) {
        values.push_back(value);
    }
    [[nodiscard]] double median() const {
        std::vector<double> sorted = values;
        std::sort(sorted.begin(), sorted.end());
        const size_t half = sorted.size() / 2;
        return sorted.size() % 2 ? sorted[half] : (sorted[half - 1] + sorted[half]) / 2;
    }
    [[nodiscard]] double least() const {
        return *std::min_element(values.begin(), values.end());
    }
    [[nodiscard]] double most() const {
        return *std::max_element(values.begin(), values.end());
    }
};

// "1.23 s (1.10 to 1.40)", in milliseconds below a tenth of a second.
std::string seconds_text(const samples &times) {
    const bool small = times.median() < 0.1;
    const double unit = small ? 1e3 : 1;
    char text[100];
    snprintf(text, sizeof text, "%.2f %s (%.2f to %.2f)", times.median() * unit, small ? "ms" : "s",
             times.least() * unit, times.most() * unit);
    return text;
}

// What one command cost over the runs.
struct cost_samples {
    samples command, sync, total, cpu, peak;

    void add(const disk_cost &cost) {
        command.add(cost.command);
        sync.add(cost.sync);
        total.add(cost.total());
        cpu.add(cost.cpu);
        peak.add(cost.peak_megabytes);
    }
    void print(const std::string &what) const {
        printf("%-46s %s", what.c_str(), seconds_text(total).c_str());
        if (sync.most() > 0) {
            printf(" = %.2f + sync %.2f", command.median(), sync.median());
        }
        const bool small = cpu.median() < 0.1;
        printf("; CPU %.2f %s; peak %.1f MB\n", cpu.median() * (small ? 1e3 : 1),
               small ? "ms" : "s", peak.most());
    }
};

void print_bound(const char *what, double value, double bound, const char *unit,
                 const std::string &spread = "") {
    printf("    %-42s %.2f%s%s; bound %.2f%s: %s\n", what, value, unit, spread.c_str(), bound, unit,
           value <= bound ? "kept" : "missed");
}

// The quotient of each run, as both sides of one run had the same other work beside them.
void print_ratio(const char *what, const samples &ours, const samples &beside, double bound) {
    samples ratios;
    for (size_t i = 0; i < ours.values.size(); i++) {
        ratios.add(ours.values[i] / beside.values[i]);
    }
    char spread[60];
    snprintf(spread, sizeof spread, " (%.2f to %.2f)", ratios.least(), ratios.most());
    print_bound(what, ratios.median(), bound, "", spread);
}

void print_load() {
    double load[1] = {0};
    getloadavg(load, 1);
    printf("    load of the machine now: %.1f\n\n", load[0]);
    fflush(stdout);
}

struct plan {
    std::string image_dir;
    int runs;
};

// --- Changes
// ---------------------------------------------------------------------------------------

void measure_many_files(const plan &plan) {
    // Written before the machines are made, which get a copy.
    const std::string bare_install_work = bare_install_script();
    const std::string bare_update_work = bare_update_script();
    cost_samples bare_install, bare_update, rm, install, update, removal;
    for (int run = 0; run < plan.runs; run++) {
        {
            disk_machine machine(plan.image_dir);
            bare_install.add(machine.change({"bash", bare_install_work}));
            bare_update.add(machine.change({"bash", bare_update_work}));
            rm.add(machine.change({"rm", "-rf", bare_live_dir}));
        }
        disk_machine machine(plan.image_dir);
        install.add(machine.change({"pvrm", "install", "--yes", many_files_package(1)}));
        update.add(machine.change({"pvrm", "upgrade", "--yes", many_files_package(2)}));
        removal.add(machine.change({"pvrm", "remove", "--yes", "bench-many"}));
    }
    bare_install.print("bare installation, 20000 files");
    install.print("pvrm install, 20000 files");
    print_ratio("of the bare installation", install.total, bare_install.total, 0.60);
    print_bound("peak memory", install.peak.most(), megabytes_bound, " MB");
    bare_update.print("bare update, with copies of what goes");
    update.print("pvrm upgrade, half of the names changed");
    print_ratio("of the bare installation", update.total, bare_install.total, 0.70);
    print_bound("peak memory", update.peak.most(), megabytes_bound, " MB");
    rm.print("rm -rf, 20000 files");
    removal.print("pvrm remove, 20000 files");
    print_ratio("of rm -rf", removal.total, rm.total, 2.0);
    print_bound("peak memory", removal.peak.most(), megabytes_bound, " MB");
    print_load();
}

void measure_small_packages(const plan &plan) {
    std::vector<std::string> command = {"pvrm", "install", "--yes"};
    for (size_t i = 0; i < small_packages; i++) {
        const std::string name = "bench-small" + std::to_string(i);
        command.push_back(pack_for_bench(name, "/usr/share/" + name, 5, 1));
    }
    cost_samples install;
    for (int run = 0; run < plan.runs; run++) {
        disk_machine machine(plan.image_dir);
        install.add(machine.change(command));
    }
    install.print("pvrm install, 200 packages of 5 files");
    print_bound("a package", install.total.median() / small_packages * 1e3,
                seconds_a_small_package * 1e3, " ms");
    print_bound("peak memory", install.peak.most(), megabytes_bound, " MB");
    print_load();
}

// --- Words that only read
// --------------------------------------------------------------------------

disk_cost once(const std::vector<std::string> &command) {
    const process_cost cost = cost_of(command, 1);
    must(cost, command.front() + " " + command[1]);
    return {cost.seconds, 0, cost.cpu_seconds, cost.peak_megabytes};
}

std::vector<std::string> cat_of(const std::string &dir) {
    std::vector<std::string> command = {"cat"};
    for (const auto &entry : fs::recursive_directory_iterator(dir)) {
        if (entry.is_regular_file()) {
            command.push_back(entry.path().string());
        }
    }
    return command;
}

cost_samples measure_word(const std::vector<std::string> &command, int runs) {
    once(command);
    cost_samples word;
    for (int run = 0; run < runs; run++) {
        word.add(once(command));
    }
    return word;
}

void print_word(const std::vector<std::string> &command, const char *what, int runs, double bound) {
    const cost_samples word = measure_word(command, runs);
    std::string name;
    for (size_t i = 0; i < command.size() && (i < 2 || command[i][0] == '-'); i++) {
        name += command[i] + " ";
    }
    word.print(name + what);
    if (bound > 0) {
        const bool small = bound < 0.1;
        print_bound("time", word.total.median() * (small ? 1e3 : 1), bound * (small ? 1e3 : 1),
                    small ? " ms" : " s");
    }
    if (word.peak.most() > megabytes_bound / 2) {
        print_bound("peak memory", word.peak.most(), megabytes_bound, " MB");
    }
}

void measure_list(int runs) {
    const std::vector<std::string> cat = cat_of("/var/lib/vrm/installed");
    once(cat);
    once({"pvrm", "list"});
    cost_samples list, beside;
    for (int run = 0; run < runs; run++) {
        beside.add(once(cat));
        list.add(once({"pvrm", "list"}));
    }
    beside.print("cat of the files that pvrm list reads");
    list.print("pvrm list, 3000 packages");
    print_ratio("of cat", list.total, beside.total, 1.2);
    print_bound("time", list.total.median() * 1e3, list_bound * 1e3, " ms");
    print_load();
}

// 3,000 packages, every other one older than in a catalogue of 60,000.
void measure_reading(const plan &plan) {
    const std::string small = pack_for_bench("bench-one", "/usr/share/bench-one", 5, 1);
    disk_machine machine(plan.image_dir);
    machine.enter();
    const std::string catalogue = bench_dir + "/catalogue-60000";
    make_catalogue(catalogue, 60000);
    std::ofstream("/etc/vrm.conf")
        << "arch_name = x86_64\nvrc_backend = vrc-dirs.so\nvrc_dirs = " << catalogue << "\n";
    auto packages = make_packages(3000);
    for (size_t i = 0; i < packages.size(); i += 2) {
        packages[i].version.assign(1, '0');
    }
    write_inventory("/var/lib/vrm", packages, 100);
    once({"pvrm", "install", "--yes", small});
    once({"pvrm", "refresh"});
    machine.settle();

    measure_list(3 * plan.runs);
    print_word({"pvrm", "upgrade", "-n"}, "3000 against 60000 packages", 3 * plan.runs,
               planning_bound);
    print_load();

    const int word_runs = 10 * plan.runs;
    const std::string &name = packages[1500].name;
    print_word({"pvrm", "allowed"}, "(an empty process)", word_runs, 0);
    for (const char *word : {"info", "files"}) {
        print_word({"pvrm", word, name}, "NAME", word_runs, word_bound);
    }
    print_word({"pvrm", "verify", "bench-one"}, "NAME (5 files)", word_runs, word_bound);
    print_word({"pvrm", "info", small}, "FILE", word_runs, word_bound);
    print_word({"pvrm", "files", small}, "FILE", word_runs, word_bound);
    printf("\nThese read more than one package:\n");
    print_word({"pvrm", "depends", name}, "NAME, a tree", word_runs, 0);
    print_word({"pvrm", "list", name}, "NAME", word_runs, 0);
    print_word({"pvrm", "why", name}, "NAME", word_runs, 0);
    print_word({"pvrm", "owner", "/usr/share/bench-one/directory0/file0"}, "PATH", word_runs, 0);
    print_word({"pvrm", "search", name}, "NAME", word_runs, 0);
    print_word({"pvrm", "upgrade", "-n", name}, "NAME", word_runs, 0);
    print_word({"pvrm", "search", "*"}, "PATTERN, all of 60000 packages", plan.runs, 0);
    print_load();
    machine.leave();
}

}  // namespace

int measure_disk(int argc, char **argv) {
    if (argc < 2 || atoi(argv[1]) < 1) {
        fprintf(stderr, "bench: --disk needs a directory for images and a number of runs\n");
        return 2;
    }
    const plan plan = {argv[0], atoi(argv[1])};
    const auto wanted = [&](const std::string &group) {
        return argc == 2 || std::find(argv + 2, argv + argc, group) != argv + argc;
    };
    make_loop_devices();
    make_many_files_packages();
    printf("Times are medians, with the least and the greatest, of %d runs (words: more).\n",
           plan.runs);
    print_load();
    if (wanted("many")) {
        measure_many_files(plan);
    }
    if (wanted("small")) {
        measure_small_packages(plan);
    }
    if (wanted("words")) {
        measure_reading(plan);
    }
    return 0;
}
