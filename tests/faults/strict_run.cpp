#include "faults/strict_run.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <random>
#include <stdexcept>
#include <system_error>

#include <sys/mount.h>
#include <sys/wait.h>

#include "faults/cases.h"
#include "faults/disk.h"
#include "faults/strict_judge.h"
#include "faults/tracer.h"

namespace {

struct strict_kind {
    const char *name;
    int error;  // 0 kills or halves
    bool reads;
    bool stays;
    disturbance::what does = disturbance::fails;
};

constexpr strict_kind strict_kinds[] = {
    {"kill", 0, false, false, disturbance::kills},
    {"ENOSPC", ENOSPC, false, false},
    {"full", ENOSPC, false, true},
    {"EIO", EIO, true, false},
    {"EROFS", EROFS, false, false},
    {"EDQUOT", EDQUOT, false, false},
    {"EACCES", EACCES, true, false},
    {"EMFILE", EMFILE, true, false},
    {"short", 0, false, false, disturbance::halves},
};

// In how many runs the recovery is killed at each of its points.
constexpr size_t thorough_runs = 20;

const std::vector<std::string> &strict_places() {
    static const std::vector<std::string> places = [] {
        std::vector<std::string> all = compared_places();
        all.insert(all.end(), {"/etc/ld.so.cache", repository + "/change*"});
        return all;
    }();
    return places;
}

// Those and what a change reads: where operations are disturbed.
const std::vector<std::string> &strictly_watched() {
    static const std::vector<std::string> places = [] {
        std::vector<std::string> all = watched_places();
        all.insert(all.end(), {"/etc/ld.so.cache"});
        return all;
    }();
    return places;
}

bool ended_well(const watched_run &run) {
    return WIFEXITED(run.status) && WEXITSTATUS(run.status) == 0;
}

struct strict_line {
    size_t runs = 0, faults = 0, second_kills = 0;
};

class strict_harness {
 public:
    strict_harness(const strict_options &what, const fault_case &which)
        : what_(what), which_(which), recovery_(recovery_of_tool()), random_(what.seed) {}

    size_t run() {
        look_at();
        size_t faults = 0;
        for (const strict_kind &how : strict_kinds) {
            if (what_.only_kind.empty() || what_.only_kind == how.name) {
                faults += run_kind(how);
            }
        }
        put_back(scene_.before, strict_places());
        return faults;
    }

 private:
    void look_at();
    size_t run_kind(const strict_kind &how);
    bool is_wanted(const strict_kind &how, size_t number) const;
    std::vector<strict_finding> run_one(const strict_kind &how, size_t number, bool thorough,
                                        strict_line *line);
    // After a kill: recovers, and kills the recovery too.
    std::vector<strict_finding> recover(size_t number, bool thorough, strict_line *line);
    void judge_recovered(const watched_run &run, const std::string &moment,
                         std::vector<strict_finding> *findings) const;

    const strict_options &what_;
    const fault_case &which_;
    const std::vector<std::string> recovery_;
    std::mt19937_64 random_;
    strict_scene scene_;
    std::vector<operation> trace_;
};

void strict_harness::look_at() {
    begin_case(which_);
    scene_.packages = paths_of_all_packages();
    scene_.before = take_tree(strict_places());
    put_back(scene_.before, strict_places());
    const watched_run run = run_watched(which_.command, strictly_watched(), nullptr);
    if (!ended_well(run)) {
        throw std::runtime_error(which_.name + ": it fails undisturbed:\n" + run.output);
    }
    scene_.after = take_tree(strict_places());
    trace_ = run.trace;
}

bool strict_harness::is_wanted(const strict_kind &how, size_t number) const {
    const operation &op = trace_[number];
    const bool opens = op.call == "open" || op.call == "look into";
    const bool has_halves = op.call == "write" || op.call == "copy_file_range";
    return (op.changes || how.reads) && (how.error != EMFILE || opens) &&
           (how.does != disturbance::halves || has_halves) &&
           (what_.only_at < 0 || static_cast<size_t>(what_.only_at) == number) &&
           number % what_.every == 0;
}

void strict_harness::judge_recovered(const watched_run &run, const std::string &moment,
                                     std::vector<strict_finding> *findings) const {
    if (!recovery_.empty() && !ended_well(run)) {
        findings->push_back({fault_sort::other, "the recovery", "fails: " + run.output});
    }
    for (strict_finding &found : judge_strictly(scene_, take_tree(strict_places()))) {
        found.what += moment;
        findings->push_back(std::move(found));
    }
}

std::vector<strict_finding> strict_harness::recover(size_t number, bool thorough,
                                                    strict_line *line) {
    std::vector<strict_finding> findings;
    if (recovery_.empty()) {
        judge_recovered({}, "", &findings);
        return findings;
    }
    // Each word that changes the machine recovers first, not only the one that does nothing more.
    const std::vector<std::string> cleanup = {recovery_[0], "cleanup", "--yes"};
    const bool by_other = number % 2 == 1 && which_.command != cleanup;
    const std::vector<std::string> &recovery = by_other ? cleanup : recovery_;
    const tree killed = take_tree(strict_places());
    const watched_run run = run_watched(recovery, strictly_watched(), nullptr);
    judge_recovered(run, "", &findings);
    if (!by_other && run.output.empty() && !judge_strictly(scene_, killed).empty()) {
        findings.push_back({fault_sort::other, "the recovery", "does not say what it did"});
    }
    std::vector<size_t> points;
    for (size_t point = 0; point < run.trace.size(); point++) {
        if (run.trace[point].changes) {
            points.push_back(point);
        }
    }
    if (!thorough && !points.empty()) {
        points = {points[random_() % points.size()]};
    }
    for (const size_t point : points) {
        put_back(killed, strict_places());
        const disturbance kill = {disturbance::kills, point, 0};
        run_watched(recovery, strictly_watched(), &kill);
        line->second_kills++;
        judge_recovered(run_watched(recovery, strictly_watched(), nullptr),
                        " (the recovery was killed at " + std::to_string(point) + ")", &findings);
    }
    return findings;
}

std::vector<strict_finding> strict_harness::run_one(const strict_kind &how, size_t number,
                                                    bool thorough, strict_line *line) {
    put_back(scene_.before, strict_places());
    const disturbance what = {how.does, number, how.error, {}, how.stays};
    const watched_run run = run_watched(which_.command, strictly_watched(), &what);
    if (!run.disturbed) {
        return {{fault_sort::other, "", "never reached: the run is not always the same"}};
    }
    scene_.done = packages_reported(run.output);
    scene_.all_done = how.does != disturbance::kills && ended_well(run) && which_.name != "cleanup";
    if (how.does == disturbance::kills) {
        return recover(number, thorough, line);
    }
    if (!WIFEXITED(run.status)) {
        return {{fault_sort::other, "", "it does not end as it should: " + run.output}};
    }
    return losses_among(judge_strictly(scene_, take_tree(strict_places())), scene_.before);
}

size_t strict_harness::run_kind(const strict_kind &how) {
    std::vector<size_t> numbers;
    for (size_t number = 0; number < trace_.size(); number++) {
        if (is_wanted(how, number)) {
            numbers.push_back(number);
        }
    }
    strict_line line;
    for (size_t i = 0; i < numbers.size(); i++) {
        const bool thorough =
            i * thorough_runs / numbers.size() != (i + 1) * thorough_runs / numbers.size();
        const std::vector<strict_finding> findings = run_one(how, numbers[i], thorough, &line);
        line.runs++;
        if (findings.empty()) {
            continue;
        }
        line.faults++;
        if (what_.verbose || line.faults <= 2) {
            printf("FAULT: %s %s at operation %zu, %s\n", which_.name.c_str(), how.name, numbers[i],
                   text_of(trace_[numbers[i]]).c_str());
            print_findings(findings, what_.verbose);
        }
    }
    printf("%-14s %-7s %6zu %8zu %6zu\n", which_.name.c_str(), how.name, line.runs,
           line.second_kills, line.faults);
    fflush(stdout);
    return line.faults;
}

}  // namespace

// Mounts what the layout has. Null when it has no disk.
static std::unique_ptr<mounted_disk> lay_out(const std::string &layout) {
    const std::string usr = live_data + "/usr", boot = live_data + "/boot";
    if (layout == "other-disk") {
        const std::string image = "/var/tmp/faults.ext4";
        std::filesystem::create_directories(usr);
        make_file_system(format_named("ext4"), image);
        auto disk = std::make_unique<mounted_disk>(format_named("ext4"), image, usr);
        std::filesystem::remove(usr + "/lost+found");
        return disk;
    }
    if (layout == "no-links") {
        std::filesystem::create_directories(boot);
        if (mount("boot", boot.c_str(), "tmpfs", 0, "mode=0755") != 0) {
            throw std::system_error(errno, std::generic_category(), "cannot mount " + boot);
        }
        refuse_links_below(boot);
    } else if (layout != "overlay") {
        throw std::runtime_error("unknown layout: " + layout);
    }
    return nullptr;
}

size_t run_strictly(const strict_options &what) {
    const std::unique_ptr<mounted_disk> disk = lay_out(what.layout);
    printf("%-14s %-7s %6s %8s %6s\n", "case", "kind", "runs", "2nd kill", "faults");
    size_t faults = 0;
    for (const fault_case &which : strict_cases()) {
        if (what.only_case.empty() || what.only_case == which.name) {
            faults += strict_harness(what, which).run();
        }
    }
    return faults;
}
