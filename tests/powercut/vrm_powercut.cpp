// Cuts the power of small machines, at each moment of a change at which it makes a difference, and
// judges what is there after the next start. scripts/powercut runs it in a throwaway root.
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "faults/cases.h"
#include "faults/strict_judge.h"
#include "powercut/machine.h"
#include "powercut/recording.h"
#include "powercut/replay.h"

namespace fs = std::filesystem;

namespace {

struct options {
    std::vector<std::string> formats = {"ext4", "xfs", "btrfs"};
    std::vector<std::string> subjects;  // empty for the strict cases
    state_wishes states;
    recording_wishes wishes = {60, 40};
    bool without_points = true;  // also record without the other program
    bool verbose = false;
    bool checks_itself = false;
    std::string recorder;
};

// What came of all the states of one record.
struct tally {
    size_t states = 0, bad = 0;
    size_t damaged_files = 0;                   // in all states together
    std::map<std::string, size_t> by_sort;      // states in which there is such a finding
    size_t unmountable = 0, not_recovered = 0;  // states
};

class harness {
 public:
    explicit harness(const options &what);

    // Of all records of a change on one kind of file system.
    tally run(const subject &what, const disk_format &format);

 private:
    tally judge_record(const subject &what, const disk_format &format, const recording &made);
    void judge_state(const subject &what, const disk_format &format, const std::string &disk,
                     const std::string &name, strict_scene *scene, tally *sum);

    const options &what_;
    std::string place_ = "/var/tmp/powercut";
};

void add(const tally &part, tally *sum) {
    sum->states += part.states;
    sum->bad += part.bad;
    sum->damaged_files += part.damaged_files;
    sum->unmountable += part.unmountable;
    sum->not_recovered += part.not_recovered;
    for (const auto &[sort, states] : part.by_sort) {
        sum->by_sort[sort] += states;
    }
}

// In memory, and gone with the namespace.
harness::harness(const options &what) : what_(what) {
    fs::create_directories(place_);
    if (mount("powercut", place_.c_str(), "tmpfs", 0, "mode=0700") != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot mount a tmpfs");
    }
}

std::string text_of_sorts(const tally &sum) {
    std::string text;
    for (const auto &[sort, states] : sum.by_sort) {
        text += " " + sort + " " + std::to_string(states);
    }
    return text;
}

}  // namespace

void harness::judge_state(const subject &what, const disk_format &format, const std::string &disk,
                          const std::string &name, strict_scene *scene, tally *sum) {
    std::vector<strict_finding> findings;
    std::string note;
    try {
        const mounted_disk mounted(format, disk, place_ + "/machine");
        if (!what.recovery.empty()) {
            const running_machine machine(mounted.root());
            const watched_run run = machine.run(what.recovery);
            if (run.status != 0) {
                sum->not_recovered++;
                note = "the recovery fails: " + run.output;
            }
        }
        findings = judge_strictly(*scene, take_machine(mounted.root()));
    } catch (const std::system_error &problem) {
        sum->unmountable++;
        note = problem.what();
    }
    sum->states++;
    std::set<std::string> sorts;
    for (const strict_finding &found : findings) {
        sorts.insert(name_of(found.sort));
        sum->damaged_files += found.sort == fault_sort::damaged ? 1 : 0;
    }
    for (const std::string &sort : sorts) {
        sum->by_sort[sort]++;
    }
    if (findings.empty() && note.empty()) {
        return;
    }
    sum->bad++;
    // A few are enough to see what is the matter.
    if (what_.verbose || sum->bad <= 2) {
        printf("FAULT: %s %s %s\n%s%s", what.name.c_str(), format.name.c_str(), name.c_str(),
               note.c_str(), note.empty() || note.ends_with('\n') ? "" : "\n");
        print_findings(findings, what_.verbose);
        fflush(stdout);
    }
}

tally harness::judge_record(const subject &what, const disk_format &format, const recording &made) {
    const disk_record record(made.record);
    disk_maker maker(made.base, record, place_ + "/prefix");
    strict_scene scene = {what.packages, made.before, made.after};
    tally sum;
    for (const disk_state &state : states_of(record, what_.states)) {
        const std::string disk = place_ + "/cut";
        maker.make(state, disk);
        said so_far = said_until(record, state.moment);
        scene.done = std::move(so_far.packages);
        scene.all_done = so_far.success;
        judge_state(what, format, disk, state.name, &scene, &sum);
    }
    return sum;
}

tally harness::run(const subject &what, const disk_format &format) {
    tally sum;
    size_t operations = 0;
    for (const size_t points : {size_t{0}, what_.wishes.points}) {
        if (points == 0 && !what_.without_points && operations > 0) {
            continue;
        }
        recording_wishes wishes = what_.wishes;
        wishes.points = points;
        if (points == 0 && !what_.without_points) {
            wishes.seconds_after = 0;
        }
        const recording made =
            record_change(what, format, place_, what_.recorder, wishes, operations);
        operations = made.operations;
        if (points == 0 && !what_.without_points) {
            continue;  // only to know how many operations there are
        }
        const tally part = judge_record(what, format, made);
        printf("%-13s %-6s %6zu %7zu %6zu %8zu %7zu %7zu %s\n", what.name.c_str(),
               format.name.c_str(), points, part.states, part.bad, part.damaged_files,
               part.unmountable, part.not_recovered, text_of_sorts(part).c_str());
        fflush(stdout);
        add(part, &sum);
        if (what_.wishes.points == 0) {
            break;
        }
    }
    return sum;
}

// --- Main ---------------------------------------------------------------------------------------

static void print_head() {
    printf("%-13s %-6s %6s %7s %6s %8s %7s %7s %s\n", "change", "disk", "points", "states", "bad",
           "damaged", "unmount", "unrecov", "bad states by what was found");
    fflush(stdout);
}

// Whether careless programs are seen to be careless, and a careful one to be careful.
static bool check_itself(harness *with, const options &what) {
    bool sees_all = true;
    const auto expect = [&](const std::string &text, bool good) {
        printf("%s: %s\n", good ? "seen" : "NOT SEEN", text.c_str());
        sees_all = sees_all && good;
    };
    for (const std::string &name : what.formats) {
        for (const subject &known : known_subjects()) {
            const tally sum = with->run(known, format_named(name));
            const std::string text = known.name + " on " + name;
            const bool unkept = sum.by_sort.contains("unkept");
            if (known.name == "careful") {
                expect(text + " loses nothing", sum.states > 0 && sum.bad == 0);
                continue;
            }
            expect(text + " loses what it reported", unkept);
            // btrfs has a content on the disk before it commits its name, but not on an fsync of
            // the directory.
            if (known.name == "dir-only" || (known.name == "careless" && name != "btrfs")) {
                expect(text + " leaves damaged files", sum.damaged_files > 0);
            }
        }
    }
    return sees_all;
}

static int usage(FILE *to, int status) {
    fputs(
        "Usage: vrm_powercut [OPTION]...\n"
        "Cuts the power of small machines; to be run in a throwaway root.\n\n"
        "  --recorder FILE   the program that records what reaches a disk\n"
        "  --disk NAME       only on ext4, xfs or btrfs\n"
        "  --case NAME       only this change; --list prints the names\n"
        "  --selections N    random selections of the writes after each flush (default: 20)\n"
        "  --points N        points at which another program syncs (default: 60)\n"
        "  --after SECONDS   how long a change is recorded after its end (default: 40)\n"
        "  --only-points     not without the other program as well\n"
        "  --states N        at most so many states of each record, at random\n"
        "  --seed N          of all that is random (default: 1)\n"
        "  --verbose         print every fault in full\n"
        "  --self-check      see whether careless programs are seen to be careless\n",
        to);
    return status;
}

static bool read_option(const std::string &word, const std::string &value, options *what) {
    const auto number = [&value] { return strtoul(value.c_str(), nullptr, 10); };
    if (word == "--recorder") {
        what->recorder = value;
    } else if (word == "--disk") {
        what->formats = {value};
    } else if (word == "--case") {
        what->subjects.push_back(value);
    } else if (word == "--selections") {
        what->states.selections = static_cast<unsigned>(number());
    } else if (word == "--points") {
        what->wishes.points = number();
    } else if (word == "--after") {
        what->wishes.seconds_after = static_cast<unsigned>(number());
    } else if (word == "--states") {
        what->states.at_most = number();
    } else if (word == "--seed") {
        what->states.seed = number();
    } else {
        return false;
    }
    return true;
}

int main(int count, char **arguments) try {
    options what;
    for (int i = 1; i < count; i++) {
        const std::string word = arguments[i];
        if (word == "--verbose") {
            what.verbose = true;
        } else if (word == "--only-points") {
            what.without_points = false;
        } else if (word == "--self-check") {
            what.checks_itself = true;
        } else if (word == "--list") {
            for (const fault_case &which : strict_cases()) {
                printf("%s\n", which.name.c_str());
            }
            return 0;
        } else if (i + 1 < count && read_option(word, arguments[i + 1], &what)) {
            i++;
        } else {
            return usage(word == "--help" ? stdout : stderr, word == "--help" ? 0 : 2);
        }
    }
    harness cutter(what);
    print_head();
    if (what.checks_itself) {
        return check_itself(&cutter, what) ? 0 : 1;
    }
    if (what.subjects.empty()) {
        for (const fault_case &which : strict_cases()) {
            what.subjects.push_back(which.name);
        }
    }
    size_t bad = 0;
    for (const std::string &name : what.subjects) {
        const subject which = subject_of_case(name);
        if (which.recovery.empty()) {
            printf("%s: the tool has no recovery: what is left is judged as it is\n", name.c_str());
        }
        for (const std::string &format : what.formats) {
            bad += cutter.run(which, format_named(format)).bad;
        }
    }
    return bad > 0 ? 1 : 0;
} catch (const std::exception &problem) {
    fprintf(stderr, "vrm_powercut: %s\n", problem.what());
    return 2;
}
