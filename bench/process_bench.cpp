// Whole processes: the installed tool beside standard commands over the same bytes. The data lies
// at the system's fixed paths, so this runs in the throwaway root only.

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "bench/bench.h"
#include "bench/commands.h"
#include "bench/data.h"
#include "bench/report.h"

namespace fs = std::filesystem;

namespace {

const std::string repository = "/var/lib/vrm";

std::vector<std::string> cat_of(const std::string &dir) {
    std::vector<std::string> command = {"cat"};
    for (const auto &entry : fs::recursive_directory_iterator(dir)) {
        if (entry.is_regular_file()) {
            command.push_back(entry.path().string());
        }
    }
    return command;
}

void beside(const std::string &what, const process_cost &cost, double bound,
            const std::string &beside) {
    must(cost, what);
    add_figure({what, cost.seconds, "s", bound, beside});
}

// What planning all updates is at least: the records of the catalogue and of what is installed are
// read, and versions of one name compared.
std::string bare_planning(const std::string &catalogue) {
    return "exec awk '$1 == \"evrkName:\" { name = $2 } $1 == \"evrkVersion:\" {"
           " if (FILENAME == ARGV[1]) offered[name] = $2;"
           " else if (offered[name] != $2) print name }' " +
           catalogue + " " + repository + "/installed/*/*.txt";
}

void measure_planning(const std::string &catalogue, std::vector<bench_package> packages) {
    for (size_t i = 0; i < packages.size(); i += 2) {
        packages[i].version.assign(1, '0');
    }
    write_inventory(repository, packages, 100);
    const process_cost bare = cost_of_shell(bare_planning(catalogue), 7);
    must(bare, "bare planning");
    beside("pvrm upgrade --dry-run, 3000 packages, half of them older",
           cost_of({"pvrm", "upgrade", "--dry-run"}), 1.5 * bare.seconds,
           told("bare work", bare.seconds));
}

}  // namespace

void measure_commands() {
    const std::string catalogue = bench_dir + "/catalogue-60000";
    make_catalogue(catalogue, 60000);
    std::ofstream("/etc/vrm.conf")
        << "arch_name = x86_64\nvrc_backend = vrc-dirs.so\nvrc_dirs = " << catalogue << "\n";
    const auto packages = make_packages(3000);
    write_inventory(repository, packages, 100);
    must(cost_of({"pvrm", "refresh"}, 1), "pvrm refresh");

    const process_cost empty = cost_of({"pvrm", "allowed"}, 20);
    beside("pvrm allowed (an empty process)", empty, 0, "");

    const process_cost cat_list = cost_of(cat_of(repository + "/installed"));
    beside("pvrm list, 3000 packages", cost_of({"pvrm", "list"}), 1.2 * cat_list.seconds,
           told("cat", cat_list.seconds));

    const process_cost cat_owner = cost_of(cat_of(repository + "/fileindex"));
    const std::string owned = path_of(packages.front().name, 99);
    fs::create_directories(fs::path(owned).parent_path());
    std::ofstream(owned) << "x";
    beside("pvrm owner, 300000 paths", cost_of({"pvrm", "owner", owned}), 1.2 * cat_owner.seconds,
           told("cat", cat_owner.seconds));

    beside("pvrm info, one installed package", cost_of({"pvrm", "info", packages[1500].name}, 20),
           empty.seconds + 0.005, "");

    const std::string text = catalogue + ".txt";
    // Into a file: grep stops at the first match when nobody can see its count.
    const process_cost grep =
        cost_of_shell("exec grep -c 'compiler for' " + text + " >" + bench_dir + "/count", 7);
    const process_cost by_name = cost_of({"pvrm", "search", "lib*net*-dev"});
    beside("pvrm search by name, 60000 records", by_name, grep.seconds + 0.05,
           told("grep -c", grep.seconds));
    const process_cost by_description = cost_of({"pvrm", "search", "*compiler for*"});
    beside("pvrm search in descriptions, 60000 records", by_description, grep.seconds + 0.05,
           told("grep -c", grep.seconds));
    add_figure({"peak memory of pvrm search",
                std::max(by_name.peak_megabytes, by_description.peak_megabytes), "MB", 60, ""});

    beside("pvrm install --dry-run, 300 dependencies",
           cost_of({"pvrm", "install", "--dry-run", "bench-top"}), 0.15, "");
    measure_planning(text, packages);
}
