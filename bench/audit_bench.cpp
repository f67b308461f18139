// Audits and questions about what is installed: the files of one package beside the bare digests of
// the same files, and the whole inventory beside one twice as large. All by the installed tool at
// the system's fixed paths, so this runs in the throwaway root only.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <set>

#include "bench/bench.h"
#include "bench/commands.h"
#include "bench/data.h"
#include "bench/report.h"

namespace fs = std::filesystem;

namespace {

const std::string repository = "/var/lib/vrm";

void measure_verify() {
    const std::string work = bench_dir + "/audits", live = "/srv/bench-verify";
    write_source_tree(work + "/tree", "bench-verify", live, 20000, 1);
    must(cost_of_shell("cd " + work +
                       " && vrk-build keygen '/O=Bench/CN=Audits' --key key.pem --cert cert.pem && "
                       "vrk-build pack tree --key key.pem --cert cert.pem -o package.vrk && "
                       "pvrm trust --yes cert.pem && pvrm install --yes ./package.vrk && "
                       "find " +
                       live + " -type f -print0 >files"),
         "installing the package to verify");
    double bare_seconds = 1e9, verify_seconds = 1e9;
    // In turn, so that a busy moment meets both.
    for (int run = 0; run < 5; run++) {
        const process_cost bare = cost_of_shell("xargs -0 sha1sum <" + work + "/files");
        must(bare, "sha1sum");
        bare_seconds = std::min(bare_seconds, bare.seconds);
        const process_cost verify = cost_of({"pvrm", "verify", "bench-verify"}, 1);
        must(verify, "pvrm verify");
        verify_seconds = std::min(verify_seconds, verify.seconds);
    }
    add_figure({"pvrm verify, 20000 files", verify_seconds, "s", 1.3 * bare_seconds,
                told("sha1sum", bare_seconds)});
    fs::remove_all(live);
    fs::remove_all(work);
    fs::remove_all(repository + "/stagearea/bench-verify_any_1.0.vrk");
    fs::remove_all(repository + "/fileindex/bench-verify");
}

struct question {
    std::string what;
    std::vector<std::string> command;
    int status;  // its answer
    double seconds[2];
};

void measure_questions(std::vector<question> *questions, bool twice) {
    const size_t size = twice ? 6000 : 3000;
    auto packages = make_packages(size);
    give_heads(&packages);
    fs::remove_all(repository + "/installed");
    write_inventory(repository, packages, 0);
    questions->back().command.back() = packages.front().name;
    for (question &one : *questions) {
        const process_cost cost = cost_of(one.command);
        if (cost.status != one.status) {
            fprintf(stderr, "bench: %s ended with status %d\n", one.what.c_str(), cost.status);
            exit(1);
        }
        one.seconds[twice] = cost.seconds;
        add_figure(
            {one.what + ", " + std::to_string(size) + " packages", cost.seconds, "s", 0, ""});
    }
}

// What a dry run of a removal of so many packages takes, of packages that no other needs.
std::vector<std::string> dry_removal_of(size_t count, const std::vector<bench_package> &packages) {
    std::set<std::string> needed;
    for (const bench_package &package : packages) {
        needed.insert(package.dependencies.begin(), package.dependencies.end());
    }
    std::vector<std::string> command = {"pvrm", "remove", "--dry-run"};
    for (const bench_package &package : packages) {
        if (!needed.contains(package.name) && count > 0) {
            command.push_back(package.name);
            count--;
        }
    }
    return command;
}

void measure_dry_removals() {
    auto packages = make_packages(1500);
    give_heads(&packages);
    fs::remove_all(repository + "/installed");
    write_inventory(repository, packages, 0);
    const auto one = dry_removal_of(1, packages), many = dry_removal_of(41, packages);
    double one_seconds = 1e9, many_seconds = 1e9;
    // In turn, so that a busy moment meets both.
    for (int run = 0; run < 9; run++) {
        const process_cost of_one = cost_of(one, 1), of_many = cost_of(many, 1);
        must(of_one, "pvrm remove --dry-run of one package");
        must(of_many, "pvrm remove --dry-run of 41 packages");
        one_seconds = std::min(one_seconds, of_one.seconds);
        many_seconds = std::min(many_seconds, of_many.seconds);
    }
    add_figure({"pvrm remove --dry-run, 1 of 1500 packages", one_seconds, "s", 0, ""});
    add_figure({"pvrm remove --dry-run, 41 of 1500 packages", many_seconds, "s", 0, ""});
    add_figure({"pvrm remove --dry-run, 41 packages in place of 1", many_seconds / one_seconds, "x",
                2, ""});
}

}  // namespace

void measure_audits() {
    measure_verify();
    std::vector<question> questions = {
        {"pvrm check --dry-run", {"pvrm", "check", "--dry-run"}, 1, {}},
        {"pvrm orphans", {"pvrm", "orphans"}, 0, {}},
        {"pvrm why", {"pvrm", "why", ""}, 0, {}},
    };
    measure_questions(&questions, false);
    measure_questions(&questions, true);
    for (const question &one : questions) {
        add_figure(
            {one.what + ", twice the packages", one.seconds[1] / one.seconds[0], "x", 2.4, ""});
    }
    measure_dry_removals();
}
