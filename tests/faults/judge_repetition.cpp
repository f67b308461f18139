// After a kill and a repetition.
#include <algorithm>
#include <set>

#include "faults/judge.h"
#include "faults/judged_tree.h"

namespace {

class repetition_judge {
 public:
    repetition_judge(const scene &expected, const tree &killed, const tree &now)
        : expected_(expected),
          before_(without_times(expected.before)),
          after_(without_times(expected.repeated)),
          killed_(without_times(killed)),
          now_(without_times(now)) {}

    std::vector<finding> judge() {
        for (const package_paths &package : expected_.packages) {
            judge_package(package);
        }
        judge_own_places();
        judge_records();
        add_foreign_changes(before_, now_, judged_, &findings_);
        return std::move(findings_);
    }

 private:
    std::optional<told> window_of(const std::string &package) const;
    void judge_package(const package_paths &package);
    void judge_own_places();
    void judge_records();
    void compare(const std::string &path, std::optional<told> window) {
        if (!is_same(at(now_, path), at(after_, path))) {
            findings_.push_back({window, path,
                                 description_of(at(now_, path)) + " instead of " +
                                     description_of(at(after_, path))});
        }
    }

    const scene &expected_;
    const tree before_, after_, killed_, now_;
    std::set<std::string> judged_;
    std::vector<finding> findings_;
};

// The moments from which a repetition does not reach the end, by what the kill left.
std::optional<told> repetition_judge::window_of(const std::string &package) const {
    const std::string index = fileindex + package;
    const tree old_entry = entry_of(before_, package), new_entry = entry_of(after_, package),
               entry = entry_of(killed_, package);
    const bool index_lacks = !is_same(at(killed_, index), at(after_, index));
    if (old_entry == new_entry) {
        return std::nullopt;
    }
    if (new_entry.empty()) {
        const bool another_is_gone =
            std::any_of(expected_.packages.begin(), expected_.packages.end(),
                        [this](const package_paths &other) {
                            return !entry_of(before_, other.name).empty() &&
                                   entry_of(killed_, other.name).empty();
                        });
        return entry == old_entry && another_is_gone ? std::optional(told::killed_in_between)
                                                     : std::nullopt;
    }
    return old_entry.empty() && entry == new_entry && index_lacks
               ? std::optional(told::killed_unindexed)
               : std::nullopt;
}

void repetition_judge::judge_package(const package_paths &package) {
    const std::optional<told> window = window_of(package.name);
    if (entry_of(now_, package.name) != entry_of(after_, package.name)) {
        findings_.push_back({window, installed + package.name, "another entry"});
    }
    compare(fileindex + package.name, window);
    for (const auto *list : {&package.data, &package.links}) {
        for (const std::string &path : *list) {
            compare(path, window);
            judged_.insert(path);
        }
    }
    for (const std::string &path : package.conf) {
        const node *half = at(killed_, path);
        const bool is_half = !is_same(half, at(before_, path)) && !is_same(half, at(after_, path));
        compare(path, is_half ? told::killed_conf : window);
        judged_.insert(path);
    }
}

void repetition_judge::judge_own_places() {
    for (const auto &[path, what] : now_) {
        const bool stage = is_below(path, stagearea) && path != stagearea &&
                           path.find(".vrk", stagearea.size()) == std::string::npos;
        const bool dotted = path.starts_with(installed + ".") || path.starts_with(fileindex + ".");
        if (stage || dotted || path.starts_with("/tmp/")) {
            findings_.push_back(
                {at(killed_, path) ? std::optional(told::killed_left_overs) : std::nullopt, path,
                 "left over"});
        }
    }
    for (const std::string &path : {lock_file, script_note}) {
        if (at(now_, path)) {
            findings_.push_back({std::nullopt, path, "left over"});
        }
    }
}

void repetition_judge::judge_records() {
    const std::vector<std::string> wanted = history_of(after_), present = history_of(now_);
    if (present != wanted) {
        const bool lacks =
            std::includes(wanted.begin(), wanted.end(), present.begin(), present.end());
        findings_.push_back({lacks ? std::optional(told::killed_record) : std::nullopt, action_log,
                             "another history"});
    }
    // Scripts that had run before the kill, or run now.
    for (const auto &[path, what] : part_of(after_, marks)) {
        if (!at(now_, path)) {
            const bool configures = path.ends_with(".99-cfg");
            findings_.push_back({configures ? std::optional(told::killed_record) : std::nullopt,
                                 path, "the script did not run"});
        }
    }
}

// The stage directories with anything but directories below their backup base.
std::set<std::string> stages_with_backups(const tree &all) {
    std::set<std::string> stages;
    for (const auto &[path, what] : part_of(all, stagearea)) {
        const std::string base = path.substr(0, path.find('/', stagearea.size() + 1));
        if (what.type != 'd' && is_below(path, base + "/old")) {
            stages.insert(base);
        }
    }
    return stages;
}

}  // namespace

std::set<std::string> refused_stages(const std::string &output) {
    std::set<std::string> stages;
    for (const std::string &line : lines_of(output)) {
        const size_t end = line.find(" holds backups of a change that was cut off");
        const size_t begin = line.find(": " + stagearea);
        if (line.starts_with("pvrm: cannot begin with ") && end != std::string::npos &&
            begin < end) {
            stages.insert(line.substr(begin + 2, end - begin - 2));
        }
    }
    return stages;
}

std::vector<finding> judge_refusal(const tree &killed, const tree &now, const std::string &output) {
    std::vector<finding> findings;
    const auto expect_same = [&](const std::string &place, const char *what) {
        if (part_of(now, place) != part_of(killed, place)) {
            findings.push_back({std::nullopt, place, what});
        }
    };
    const std::set<std::string> backups = stages_with_backups(killed);
    for (const std::string &stage : backups) {
        expect_same(stage, "a second run touched the backups");
    }
    const std::set<std::string> refused = refused_stages(output);
    for (const std::string &stage : refused) {
        if (!backups.contains(stage)) {
            findings.push_back({std::nullopt, stage, "refused without backups"});
        }
    }
    if (!refused.empty()) {
        for (const std::string &place : {live_data, live_conf, action_log}) {
            expect_same(place, "changed by a run that was refused");
        }
    }
    return findings;
}

std::vector<finding> judge_repetition(const scene &expected, const tree &killed, const tree &now) {
    return repetition_judge(expected, killed, now).judge();
}
