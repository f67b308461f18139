#include "faults/strict_run.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <random>
#include <set>
#include <stdexcept>
#include <system_error>
#include <utility>

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

// What the harness must find fault with: an engine that skips operations and takes them for done,
// in a recovery after a kill, or after an operation that failed.
struct broken_engine {
    const char *what, *case_name, *operation;
    disturbance::what does;
    std::set<std::string> skips;
};

const broken_engine broken_engines[] = {
    {"a recovery that does not put the old files back",
     "full-upgrade",
     "chmod /srv/faults/usr/bin/suite",
     disturbance::kills,
     {"rename"}},
    {"a recovery that leaves the new files",
     "full-install",
     "chmod /srv/faults/usr/bin/suite",
     disturbance::kills,
     {"unlink", "rmdir"}},
    {"a recovery that does not finish an upgrade",
     "full-upgrade",
     "rename /var/lib/vrm/installed/suite -> /var/lib/vrm/installed/.suite.old",
     disturbance::kills,
     {"rename"}},
    {"a recovery that does not write the history",
     "full-remove",
     "open /var/lib/vrm/install.log",
     disturbance::kills,
     {"write"}},
    {"a rollback that does not put the old files back",
     "full-upgrade",
     "open /var/lib/vrm/installed/.suite.new/inst.txt",
     disturbance::fails,
     {"read", "rename", "unlink"}},
    {"an upgrade that does not get into the inventory",
     "full-upgrade",
     "symlink /srv/faults/links/suite-new",
     disturbance::fails,
     {"rename"}},
    {"a removal that leaves the files",
     "full-remove",
     "open /var/lib/vrm/script.running.new",
     disturbance::fails,
     {"rename", "unlink"}},
};

struct strict_line {
    size_t runs = 0, faults = 0, second_kills = 0;
};

class strict_harness {
 public:
    strict_harness(strict_options what, const fault_case &which)
        : what_(std::move(what)),
          which_(which),
          recovery_(recovery_of_tool()),
          random_(what.seed) {}

    size_t run() {
        look_at();
        if (what_.lists_operations) {
            list_operations();
            return 0;
        }
        size_t faults = 0;
        for (const strict_kind &how : strict_kinds) {
            if (what_.only_kind.empty() || what_.only_kind == how.name) {
                faults += run_kind(how);
            }
        }
        put_back(scene_.before, strict_places());
        return faults;
    }

    // Whether what an engine leaves that is broken is told from what a whole one leaves.
    bool sees(const broken_engine &engine);

 private:
    void look_at();
    void list_operations() const;
    std::vector<strict_finding> run_broken(const broken_engine &engine, size_t number,
                                           const std::set<std::string> &skips);
    size_t run_kind(const strict_kind &how);
    bool is_wanted(const strict_kind &how, size_t number) const;
    std::vector<size_t> sample_of(const std::vector<size_t> &numbers);
    std::vector<strict_finding> run_one(const strict_kind &how, size_t number, bool thorough,
                                        strict_line *line);
    // After a kill: recovers, and kills the recovery too.
    std::vector<strict_finding> recover(size_t number, bool thorough, strict_line *line);
    void judge_recovered(const watched_run &run, const std::string &moment,
                         std::vector<strict_finding> *findings) const;

    const strict_options what_;
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
    if (ended_well(run) == which_.fails) {
        throw std::runtime_error(which_.name + ": undisturbed it ends in another way:\n" +
                                 run.output);
    }
    scene_.after = take_tree(strict_places());
    trace_ = run.trace;
}

void strict_harness::list_operations() const {
    for (size_t number = 0; number < trace_.size(); number++) {
        const operation &op = trace_[number];
        printf("%s %zu %s%s\n", which_.name.c_str(), number, op.changes ? "" : "(reads) ",
               text_of(op).c_str());
    }
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

// One of each of so many parts.
std::vector<size_t> strict_harness::sample_of(const std::vector<size_t> &numbers) {
    if (what_.sample == 0 || numbers.size() <= what_.sample) {
        return numbers;
    }
    std::vector<size_t> chosen;
    for (size_t part = 0; part < what_.sample; part++) {
        const size_t from = part * numbers.size() / what_.sample;
        const size_t to = (part + 1) * numbers.size() / what_.sample;
        chosen.push_back(numbers[from + random_() % (to - from)]);
    }
    return chosen;
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
    return losses_among(judge_strictly(scene_, take_tree(strict_places())), scene_.before,
                        trace_[number].path);
}

std::vector<strict_finding> strict_harness::run_broken(const broken_engine &engine, size_t number,
                                                       const std::set<std::string> &skips) {
    put_back(scene_.before, strict_places());
    const bool is_killed = engine.does == disturbance::kills;
    const disturbance what = {engine.does, number, EIO,
                              is_killed ? std::set<std::string>() : skips};
    const watched_run run = run_watched(which_.command, strictly_watched(), &what);
    scene_.done = packages_reported(run.output);
    scene_.all_done = !is_killed && ended_well(run);
    if (is_killed) {
        // Half of the first operation, which writes nothing, is all of it.
        const disturbance from_the_beginning = {disturbance::halves, 0, 0, skips};
        run_watched(recovery_, strictly_watched(), &from_the_beginning);
    }
    const std::vector<strict_finding> found = judge_strictly(scene_, take_tree(strict_places()));
    return is_killed ? found : losses_among(found, scene_.before, trace_[number].path);
}

bool strict_harness::sees(const broken_engine &engine) {
    look_at();
    const auto at = std::find_if(trace_.begin(), trace_.end(), [&engine](const operation &op) {
        return text_of(op) == engine.operation;
    });
    if (at == trace_.end()) {
        throw std::runtime_error(std::string("no such operation: ") + engine.operation);
    }
    const auto number = static_cast<size_t>(at - trace_.begin());
    const std::vector<strict_finding> of_whole = run_broken(engine, number, {});
    const bool is_seen = !run_broken(engine, number, engine.skips).empty();
    printf("%s: %s\n", of_whole.empty() && is_seen ? "found" : "NOT FOUND", engine.what);
    print_findings(of_whole, true);
    put_back(scene_.before, strict_places());
    return of_whole.empty() && is_seen;
}

size_t strict_harness::run_kind(const strict_kind &how) {
    std::vector<size_t> numbers;
    for (size_t number = 0; number < trace_.size(); number++) {
        if (is_wanted(how, number)) {
            numbers.push_back(number);
        }
    }
    numbers = sample_of(numbers);
    strict_line line;
    for (size_t i = 0; i < numbers.size(); i++) {
        const bool thorough =
            i * what_.thorough / numbers.size() != (i + 1) * what_.thorough / numbers.size();
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
    if (!what.only_case.empty()) {
        case_named(what.only_case);
    }
    const std::unique_ptr<mounted_disk> disk = lay_out(what.layout);
    if (!what.lists_operations) {
        printf("%-14s %-7s %6s %8s %6s\n", "case", "kind", "runs", "2nd kill", "faults");
    }
    size_t faults = 0;
    for (const fault_case &which : strict_cases()) {
        if (what.only_case.empty() || what.only_case == which.name) {
            faults += strict_harness(what, which).run();
        }
    }
    return faults;
}

bool find_broken_engines() {
    bool finds_all = true;
    for (const broken_engine &engine : broken_engines) {
        finds_all = strict_harness({}, case_named(engine.case_name)).sees(engine) && finds_all;
    }
    return finds_all;
}
