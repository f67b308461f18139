// Disturbs changes of the system, one file operation after the other, and judges what is left.
// scripts/faults runs it in a throwaway root.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <iterator>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include "faults/cases.h"
#include "faults/judge.h"
#include "faults/numbers.h"
#include "faults/strict_run.h"
#include "faults/tracer.h"
#include "faults/tree.h"

namespace {

// A kind of disturbance. Operations that only read don't fail for want of space, and a kill at one
// is a kill at the next that changes something.
struct kind {
    const char *name;
    int error;  // 0 kills
    bool reads;
};

constexpr kind kinds[] = {
    {"ENOSPC", ENOSPC, false},
    {"EIO", EIO, true},
    {"EACCES", EACCES, true},
    {"kill", 0, false},
};

struct options {
    size_t every = 1;       // only each so many-th operation
    bool is_short = false;  // each of these once, with a kind that goes round, and the regressions
    bool verbose = false;   // tells all that is told
    std::string only_case, only_kind;
    long only_at = -1;
};

// Operations that are always disturbed: those whose disturbance once did harm that nobody is told
// of, and moments of a rollback, which are few among all others.
struct regression {
    const char *case_name, *kind_name, *operation;
};

constexpr regression regressions[] = {
    // The backup was listed before it had its mode, and came back with another.
    {"update", "ENOSPC", "close /var/lib/vrm/stagearea/app_any_2.0/old/index.txt"},
    // Put back by hand after a crash, a backup that was listed first gave the file its own mode.
    {"update", "kill", "fchmod /var/lib/vrm/stagearea/app_any_2.0/old/srv/faults/app/taken"},
    // An archive that could not be read to its end was installed as far as it went.
    {"update", "EIO", "read /var/lib/vrm/stagearea/lib_any_1.0.vrk"},
    // Without the list of the old version its files stayed, and belonged to nobody.
    {"update-bare", "EIO", "read /var/lib/vrm/fileindex/app"},
    // A file that could not be looked at passed for missing, and was overwritten.
    {"install", "EIO", "stat /etc/faults/new.conf"},
    {"install", "EACCES", "stat /srv/faults/app/taken"},
    // A script that could not be looked at passed for missing, and was not run.
    {"remove-fails", "EIO", "stat /var/lib/vrm/installed/app/init/99-del.sh"},
    // An entry that was half removed remained in the inventory.
    {"remove", "kill", "unlink /var/lib/vrm/installed/.app.old/dump/notes"},
    {"remove", "EIO", "unlink /var/lib/vrm/installed/.app.old/desc.txt"},
    // An update that had not got into the inventory was told as a success.
    {"update", "EIO", "rename /var/lib/vrm/installed/app -> /var/lib/vrm/installed/.app.old"},
    // A rollback that is killed as it puts back a file that was nobody's, one that the new version
    // doesn't have, a configuration file, one of a removal.
    {"install-fails", "kill", "copy_file_range /srv/faults/app/taken"},
    {"update-fails", "kill", "open /srv/faults/app/old/gone"},
    {"update-fails", "kill", "copy_file_range /etc/faults/app.conf"},
    {"remove-fails", "kill", "copy_file_range /srv/faults/app/one"},
};

// What the harness must find fault with: an engine that, after an operation has failed, skips
// others and takes them for done.
struct broken_engine {
    const char *what, *case_name, *operation;
    std::set<std::string> skips;
};

const broken_engine broken_engines[] = {
    {"a rollback that leaves the new files",
     "install-file",
     "open /srv/faults/app/same",
     {"unlink"}},
    {"a rollback that does not put the old files back",
     "update",
     "open /var/lib/vrm/installed/.app.new/inst.txt",
     {"read"}},
    {"a rollback that puts them back with other permissions",
     "update",
     "open /var/lib/vrm/installed/.app.new/inst.txt",
     {"fchmod"}},
    {"a half registered package",
     "install-file",
     "open /var/lib/vrm/installed/app/inst.txt",
     {"unlink", "rmdir"}},
    {"an update that does not get into the inventory",
     "update",
     "chmod /srv/faults/app/run",
     {"rename"}},
    {"a removal that leaves the files", "remove", "open /var/lib/vrm/install.log", {"unlink"}},
};

// The runs of a case with one kind.
struct line_of_table {
    std::vector<size_t> runs;  // which operations
    size_t faults = 0;
    std::set<size_t> told_runs;
    std::map<told, std::vector<size_t>> told_by_reason;
};

// The runs of all cases that have one reason in common.
struct told_reason {
    std::map<std::string, size_t> runs;  // how many, by case
    std::vector<std::string> losses;     // "CASE KIND n ..."
};

class harness {
 public:
    explicit harness(const options &what) : what_(what) {}

    // The number of runs that ended in a fault.
    size_t run_all();
    // Whether a broken engine is seen to be broken.
    bool check_itself();

 private:
    scene look_at(const fault_case &which);
    void run_case(const fault_case &which);
    void expect_regressions(const fault_case &which) const;
    bool is_wanted(const fault_case &which, const kind &how, size_t number) const;
    void sum_up(const fault_case &which, const std::map<const kind *, line_of_table> &lines);
    std::vector<finding> run_one(const fault_case &which, const kind &how, size_t number,
                                 std::string *operation_text,
                                 const std::set<std::string> &then_skipped = {});
    std::vector<finding> judge_kill(const fault_case &which);
    void note(const fault_case &which, const kind &how, size_t number, const std::string &operation,
              const std::vector<finding> &findings, line_of_table *line);

    const options &what_;
    scene scene_;
    std::vector<operation> trace_;
    size_t faults_ = 0;
    std::map<told, told_reason> told_;
};

bool succeeded(const watched_run &run) {
    return WIFEXITED(run.status) && WEXITSTATUS(run.status) == 0;
}

}  // namespace

// The case without any disturbance.
scene harness::look_at(const fault_case &which) {
    scene seen;
    begin_case(which);
    seen.packages = paths_of_all_packages();
    seen.fails = which.fails;
    seen.before = take_tree(compared_places());
    put_back(seen.before, compared_places());
    const watched_run run = run_watched(which.command, watched_places(), nullptr);
    if (succeeded(run) == which.fails) {
        throw std::runtime_error(which.name + ": undisturbed it ends otherwise:\n" + run.output);
    }
    seen.after = take_tree(compared_places());
    trace_ = run.trace;
    seen.repeated = seen.after;
    if (which.fails) {
        put_back(seen.before, compared_places());
        mend(which);
        const watched_run good = run_alone(which.command);
        if (!succeeded(good)) {
            throw std::runtime_error(which.name + ": the good one fails too:\n" + good.output);
        }
        seen.repeated = take_tree(compared_places());
        unmend(which);
    }
    return seen;
}

static finding fault_of(const std::string &what) {
    return {std::nullopt, "", what};
}

// The packages that a list shows, a line each.
static std::set<std::string> names_in_list(const std::string &output) {
    std::set<std::string> names;
    for (const std::string &line : lines_of(output)) {
        names.insert(line.substr(0, line.find(' ')));
    }
    return names;
}

// What the administrator's guide says to do with the backups of a change that died. False when
// there are none.
static bool put_backups_back(const std::string &stage) {
    const std::string old = stage + "/old";
    if (read_whole(old + "/index.txt").empty()) {
        return false;
    }
    run_alone(
        {"/bin/sh", "-c",
         "cd " + old + R"( && while read -r path; do cp -a ".$path" "$path"; done <index.txt)"});
    return true;
}

static bool put_all_backups_back() {
    bool any = false;
    for (const auto &entry : std::filesystem::directory_iterator(stagearea)) {
        any = put_backups_back(entry.path().string()) || any;
    }
    return any;
}

// What the guide says to do when a change is refused for the sake of backups.
static void recover(const std::set<std::string> &stages) {
    for (const std::string &stage : stages) {
        put_backups_back(stage);
        std::filesystem::remove_all(stage);
    }
}

// What is left by a kill is a repository that can be used, and in which a second run gets through.
// Where the change was to fail, that is one with a package that doesn't.
std::vector<finding> harness::judge_kill(const fault_case &which) {
    const tree killed = take_tree(compared_places());
    std::vector<finding> findings;
    const auto expect = [&findings](const std::vector<std::string> &command, const char *text) {
        const watched_run run = run_alone(command);
        if (!succeeded(run) || run.output.find(text) == std::string::npos) {
            findings.push_back(fault_of(command[1] + " does not work: " + run.output));
        }
        return run.output;
    };
    const std::string list = expect({which.command[0], "list"}, "other");
    expect({which.command[0], "owner", live_data + "/other/file"}, "other");
    expect({which.command[0], "cleanup", "--dry-run"}, "would remove");
    if (take_tree(compared_places()) != killed) {
        findings.push_back(fault_of("asking changes something"));
    }
    const auto add = [&findings](const std::vector<finding> &found) {
        findings.insert(findings.end(), found.begin(), found.end());
    };
    add(judge_killed(scene_, killed, names_in_list(list)));
    if (put_all_backups_back()) {
        add(judge_recovery(scene_, killed, take_tree(compared_places())));
        put_back(killed, compared_places());
    }
    mend(which);
    watched_run again = run_alone(which.command);
    add(judge_refusal(killed, take_tree(compared_places()), again.output));
    if (const std::set<std::string> refused = refused_stages(again.output); !refused.empty()) {
        if (!WIFEXITED(again.status) || WEXITSTATUS(again.status) != 1) {
            findings.push_back(fault_of("a refusal is no failure: " + again.output));
        }
        recover(refused);
        again = run_alone(which.command);
        if (!refused_stages(again.output).empty()) {
            findings.push_back(fault_of("refused after the recovery"));
        }
    }
    add(judge_repetition(scene_, killed, take_tree(compared_places())));
    unmend(which);
    const bool ended = WIFEXITED(again.status) && WEXITSTATUS(again.status) <= 1;
    if (!ended) {
        findings.push_back(fault_of("the second run does not end well: " + again.output));
    }
    if (has_fault(findings)) {
        findings.push_back(fault_of("the second run said: " + again.output));
    }
    return findings;
}

std::vector<finding> harness::run_one(const fault_case &which, const kind &how, size_t number,
                                      std::string *operation_text,
                                      const std::set<std::string> &then_skipped) {
    put_back(scene_.before, compared_places());
    std::error_code none;
    std::filesystem::remove(engine_log, none);
    const disturbance what = {how.error ? disturbance::fails : disturbance::kills, number,
                              how.error, then_skipped};
    const watched_run run = run_watched(which.command, watched_places(), &what);
    if (!run.disturbed) {
        return {fault_of("the operation was never reached: the run is not always the same")};
    }
    *operation_text = text_of(run.trace[number]);
    if (text_of(trace_[number]).substr(0, 20) != operation_text->substr(0, 20)) {
        return {fault_of("undisturbed this operation is: " + text_of(trace_[number]))};
    }
    if (how.error == 0) {
        return judge_kill(which);
    }
    if (!WIFEXITED(run.status) || WEXITSTATUS(run.status) > 1) {
        return {fault_of("it does not end as it should: " + run.output)};
    }
    const failed_run failed = {
        run.trace[number],           number, run.trace, succeeded(run), read_whole(engine_log),
        take_tree(compared_places())};
    std::vector<finding> findings = judge_failure(scene_, failed);
    if (has_fault(findings)) {
        findings.push_back(fault_of("it said: " + run.output));
    }
    return findings;
}

void harness::note(const fault_case &which, const kind &how, size_t number,
                   const std::string &operation, const std::vector<finding> &findings,
                   line_of_table *line) {
    line->runs.push_back(number);
    std::set<told> reasons;
    for (const finding &found : findings) {
        if (found.reason) {
            reasons.insert(*found.reason);
        }
    }
    for (const told reason : reasons) {
        line->told_by_reason[reason].push_back(number);
    }
    if (!reasons.empty()) {
        line->told_runs.insert(number);
    }
    const bool bad = has_fault(findings);
    if (bad) {
        line->faults++;
        faults_++;
    }
    if (bad || (what_.verbose && !findings.empty())) {
        printf("%s: %s %s at operation %zu, %s\n", bad ? "FAULT" : "told", which.name.c_str(),
               how.name, number, operation.c_str());
        for (const finding &found : findings) {
            printf("    %-20s %s: %s\n", found.reason ? name_of(*found.reason) : "FAULT",
                   found.path.c_str(), found.what.c_str());
        }
        fflush(stdout);
    }
}

bool harness::is_wanted(const fault_case &which, const kind &how, size_t number) const {
    const operation &op = trace_[number];
    const bool possible = op.changes || how.reads;
    if (!possible || (!what_.only_kind.empty() && what_.only_kind != how.name) ||
        (what_.only_at >= 0 && static_cast<size_t>(what_.only_at) != number)) {
        return false;
    }
    if (!what_.is_short) {
        return number % what_.every == 0;
    }
    for (const regression &known : regressions) {
        if (which.name == known.case_name && known.kind_name == std::string(how.name) &&
            text_of(op) == known.operation) {
            return true;
        }
    }
    if (number % what_.every != 0) {
        return false;
    }
    // EIO stands in for a kind that is not possible here.
    const kind &its_turn = kinds[number / what_.every % std::size(kinds)];
    return &how == (op.changes || its_turn.reads ? &its_turn : &kinds[1]);
}

// A regression whose operation is done no more would be tested no more, and nobody would know.
void harness::expect_regressions(const fault_case &which) const {
    for (const regression &known : regressions) {
        if (which.name == known.case_name &&
            std::none_of(trace_.begin(), trace_.end(), [&known](const operation &op) {
                return text_of(op) == known.operation;
            })) {
            throw std::runtime_error(which.name + ": no longer an operation: " + known.operation);
        }
    }
}

void harness::run_case(const fault_case &which) {
    scene_ = look_at(which);
    expect_regressions(which);
    std::map<const kind *, line_of_table> lines;
    for (size_t number = 0; number < trace_.size(); number++) {
        for (const kind &how : kinds) {
            if (is_wanted(which, how, number)) {
                std::string operation;
                const std::vector<finding> findings = run_one(which, how, number, &operation);
                note(which, how, number, operation, findings, &lines[&how]);
            }
        }
    }
    for (const kind &how : kinds) {
        const line_of_table &line = lines[&how];
        if (!line.runs.empty()) {
            printf("%-14s %-7s %6zu %6zu %6zu\n", which.name.c_str(), how.name, line.runs.size(),
                   line.told_runs.size(), line.faults);
        }
    }
    fflush(stdout);
    sum_up(which, lines);
}

void harness::sum_up(const fault_case &which, const std::map<const kind *, line_of_table> &lines) {
    std::map<told, std::map<std::string, std::string>> kinds_by_numbers;
    for (const kind &how : kinds) {
        const line_of_table &line = lines.at(&how);
        for (const auto &[reason, numbers] : line.told_by_reason) {
            told_[reason].runs[which.name] += numbers.size();
            if (is_loss(reason)) {
                std::string &names =
                    kinds_by_numbers[reason][text_of_numbers(numbers, line.runs, trace_)];
                names.append(names.empty() ? "" : ", ").append(how.name);
            }
        }
    }
    for (const auto &[reason, by_numbers] : kinds_by_numbers) {
        for (const auto &[numbers, names] : by_numbers) {
            std::string text = which.name;
            text.append(" ").append(names).append(": n ").append(numbers);
            told_[reason].losses.push_back(text);
        }
    }
}

size_t harness::run_all() {
    printf("%-14s %-7s %6s %6s %6s\n", "case", "kind", "runs", "told", "faults");
    for (const fault_case &which : all_cases()) {
        if (what_.only_case.empty() || what_.only_case == which.name) {
            run_case(which);
        }
    }
    printf("\nWhat is told, and in how many runs; losses with the numbers of their operations:\n");
    for (const auto &[reason, found] : told_) {
        printf("%-20s %s\n%20s", name_of(reason), sentence_of(reason), "");
        for (const auto &[name, runs] : found.runs) {
            printf(" %s %zu", name.c_str(), runs);
        }
        printf("\n");
        for (const std::string &loss : found.losses) {
            printf("%20s %s\n", "", loss.c_str());
        }
    }
    return faults_;
}

bool harness::check_itself() {
    bool sees_all = true;
    for (const broken_engine &engine : broken_engines) {
        const auto which =
            std::find_if(all_cases().begin(), all_cases().end(),
                         [&engine](const fault_case &one) { return one.name == engine.case_name; });
        scene_ = look_at(*which);
        const auto at = std::find_if(trace_.begin(), trace_.end(), [&engine](const operation &op) {
            return text_of(op) == engine.operation;
        });
        if (at == trace_.end()) {
            throw std::runtime_error(std::string("no such operation: ") + engine.operation);
        }
        const auto number = static_cast<size_t>(at - trace_.begin());
        std::string text;
        const bool is_good_whole = !has_fault(run_one(*which, kinds[1], number, &text));
        const bool is_seen_broken =
            has_fault(run_one(*which, kinds[1], number, &text, engine.skips));
        const bool good = is_good_whole && is_seen_broken;
        printf("%s: %s\n", good ? "seen" : "NOT SEEN", engine.what);
        sees_all = sees_all && good;
    }
    return sees_all;
}

// What other programs of the machine leave in /tmp meanwhile shows through the throwaway root, and
// would be taken for the tool's. All paths from here on are absolute: the working directory may lie
// below the one that is hidden.
static void have_own_tmp() {
    if (chdir("/") != 0 || unshare(CLONE_NEWNS) != 0 ||
        mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("faults", "/tmp", "tmpfs", 0, "mode=1777") != 0) {
        throw std::runtime_error(std::string("no /tmp of its own: ") + strerror(errno));
    }
}

// --- Main ---------------------------------------------------------------------------------------

static int usage(FILE *to, int status) {
    fputs(
        "Usage: vrm_faults [OPTION]...\n"
        "Disturbs changes of the system; to be run in a throwaway root.\n\n"
        "  --short        some operations, each with one kind, and what once was a fault\n"
        "  --every N      only each N-th operation\n"
        "  --case NAME    only this case; --list prints the names\n"
        "  --kind KIND    only this kind: ENOSPC, EIO, EACCES, kill\n"
        "  --at NUMBER    only this operation\n"
        "  --verbose      tell each run in which something is left\n"
        "  --strict       the strict cases: each package as before or as after, whatever happened\n"
        "  --layout NAME  of a strict run: overlay, other-disk, no-links\n"
        "  --seed N       of what is random in a strict run\n"
        "  --self-check   see whether broken engines are seen to be broken\n",
        to);
    return status;
}

int main(int count, char **arguments) try {
    options what;
    bool checks_itself = false, is_strict = false;
    strict_options strictly;
    for (int i = 1; i < count; i++) {
        const std::string word = arguments[i];
        if (word == "--short") {
            what.is_short = true;
            what.every = 31;
        } else if (word == "--self-check") {
            checks_itself = true;
        } else if (word == "--verbose") {
            what.verbose = true;
        } else if (word == "--strict") {
            is_strict = true;
        } else if (word == "--seed" && i + 1 < count) {
            strictly.seed = strtoul(arguments[++i], nullptr, 10);
        } else if (word == "--layout" && i + 1 < count) {
            strictly.layout = arguments[++i];
        } else if (word == "--list") {
            for (const fault_case &which : is_strict ? strict_cases() : all_cases()) {
                printf("%s\n", which.name.c_str());
            }
            return 0;
        } else if (word == "--case" && i + 1 < count) {
            what.only_case = arguments[++i];
        } else if (word == "--kind" && i + 1 < count) {
            what.only_kind = arguments[++i];
        } else if (word == "--every" && i + 1 < count) {
            what.every = strtoul(arguments[++i], nullptr, 10);
        } else if (word == "--at" && i + 1 < count) {
            what.only_at = atol(arguments[++i]);
        } else {
            return usage(word == "--help" ? stdout : stderr, word == "--help" ? 0 : 2);
        }
    }
    have_own_tmp();
    make_world();
    if (checks_itself) {
        return harness(what).check_itself() ? 0 : 1;
    }
    strictly.every = what.every;
    strictly.only_case = what.only_case;
    strictly.only_kind = what.only_kind;
    strictly.only_at = what.only_at;
    strictly.verbose = what.verbose;
    const size_t faults = is_strict ? run_strictly(strictly) : harness(what).run_all();
    if (faults > 0) {
        printf("%zu runs ended in a fault\n", faults);
    }
    return faults > 0 ? 1 : 0;
} catch (const std::exception &problem) {
    fprintf(stderr, "vrm_faults: %s\n", problem.what());
    return 2;
}
