#include "faults/strict_judge.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <map>
#include <stdexcept>

#include "faults/judged_tree.h"

namespace {

const std::string stage_place = stagearea + "/", saved_place = repository + "/saved/";

// What may be different each time and is of no package: locks, logs, caches, what runs.
bool is_ignored(const std::string &path) {
    static const std::vector<std::string> places = {
        lock_file,
        script_note + "*",
        repository + "/change.status",
        "/var/log",
        "/var/cache/ldconfig",
        "/var/cache/vrm",
        "/run",
        "/etc/vrm.conf",
        repository + "/recent*",
        "/tmp",
        "/lost+found",
        "/var/tmp/bystander",
        "/root",
        repository + "/scriptdir",
        "/var/tmp/faults",
    };
    return is_in(places, path);
}

// The name of the directory of saved files begins with the time of the change.
std::string without_time(const std::string &path) {
    constexpr size_t time_length = sizeof "2000-01-01T00:00:00" - 1;
    const size_t from = saved_place.size();
    if (!path.starts_with(saved_place) || path.size() < from + time_length) {
        return path;
    }
    return saved_place + "TIME" + path.substr(from + time_length);
}

tree comparable(const tree &all) {
    tree result;
    for (const auto &[path, what] : without_times(all)) {
        if (!is_ignored(path)) {
            result[without_time(path)] = what;
        }
    }
    return result;
}

// Whether two nodes differ in nothing but permissions that the first lacks.
bool has_fewer_rights(node present, const node &wanted) {
    const bool has_more = (present.mode & ~wanted.mode) != 0;
    present.mode = wanted.mode;
    return !has_more && present == wanted;
}

std::string first_part(const std::string &path, char end) {
    return path.substr(0, path.find(end));
}

class strict_judge {
 public:
    strict_judge(const strict_scene &scene, const tree &now)
        : scene_(scene),
          before_(comparable(scene.before)),
          after_(comparable(scene.after)),
          now_(comparable(now)) {
        for (const package_paths &package : scene.packages) {
            for (const auto *list :
                 {&package.data, &package.conf, &package.links, &package.perms}) {
                for (const std::string &path : *list) {
                    const auto [it, is_new] = owners_.emplace(path, package.name);
                    if (!is_new && it->second != package.name) {
                        throw std::logic_error("two packages have the path " + path);
                    }
                }
            }
        }
        for (const tree *one : {&before_, &after_, &now_}) {
            for (const auto &[path, what] : *one) {
                paths_.insert(path);
            }
        }
    }

    std::vector<strict_finding> judge() {
        choose_sides();
        for (const std::string &path : paths_) {
            judge_path(path);
        }
        judge_history();
        judge_scripts();
        return std::move(findings_);
    }

 private:
    // What a path belongs to: a package by its name, or something that comes and goes as a whole.
    // Empty for what belongs to neither.
    std::string unit_of(const std::string &path) const;
    std::set<std::string> units_below(const std::string &directory) const;
    bool is_done(const std::string &unit) const {
        return sides_.contains(unit) && sides_.at(unit);
    }
    void choose_sides();
    void judge_path(const std::string &path);
    void judge_history();
    void judge_scripts();
    void add_difference(const std::string &path, const node *wanted);

    const strict_scene &scene_;
    const tree before_, after_, now_;
    std::map<std::string, std::string> owners_;
    std::set<std::string> paths_;
    std::map<std::string, bool> sides_;  // by unit, true for after; without those that don't change
    std::vector<strict_finding> findings_;
};

std::string strict_judge::unit_of(const std::string &path) const {
    if (const auto found = owners_.find(path); found != owners_.end()) {
        return found->second;
    }
    for (const std::string &place : {installed, fileindex, repository + "/left_links/"}) {
        if (path.starts_with(place)) {
            const std::string name = first_part(path.substr(place.size()), '/');
            const bool retired = name.starts_with('.');
            // An entry and an index that an update left behind are two things to clear up.
            return retired ? place + name : name;
        }
    }
    if (path.starts_with(saved_place)) {
        return first_part(path.substr((saved_place + "TIME_").size()), '_');
    }
    if (path == "/etc/ld.so.cache") {
        return "base";
    }
    return path.starts_with(stage_place) ? path : "";
}

std::set<std::string> strict_judge::units_below(const std::string &directory) const {
    std::set<std::string> units;
    const std::string start = directory == "/" ? "/" : directory + "/";
    for (auto it = paths_.lower_bound(start); it != paths_.end() && it->starts_with(start); ++it) {
        units.insert(unit_of(*it));
    }
    units.erase("");
    return units;
}

// The side with fewer differences is taken for the one that was meant; what was reported as done
// has no choice.
void strict_judge::choose_sides() {
    std::map<std::string, int> difference;  // more than 0: nearer to after
    std::set<std::string> changing;
    for (const std::string &path : paths_) {
        const std::string unit = unit_of(path);
        const node *b = at(before_, path), *a = at(after_, path), *n = at(now_, path);
        if (unit.empty() || is_same(b, a)) {
            continue;
        }
        changing.insert(unit);
        difference[unit] += (is_same(n, b) ? 0 : 1) - (is_same(n, a) ? 0 : 1);
    }
    for (const std::string &unit : changing) {
        const bool reported = scene_.all_done || scene_.done.contains(unit);
        sides_[unit] = reported || difference[unit] > 0;
        if (reported && difference[unit] <= 0) {
            findings_.push_back({fault_sort::unkept, unit, "was reported as done"});
        }
    }
}

void strict_judge::add_difference(const std::string &path, const node *wanted) {
    const node *b = at(before_, path), *a = at(after_, path), *n = at(now_, path);
    fault_sort sort = fault_sort::other;
    if (!n) {
        sort = fault_sort::missing;
    } else if (!wanted) {
        sort = fault_sort::left_over;
    } else if (n->type == 'f' && !(b && is_same_content(n, b)) && !(a && is_same_content(n, a))) {
        sort = fault_sort::damaged;
    } else if (wanted == a && has_fewer_rights(*n, *a)) {
        sort = fault_sort::rights;
    } else if (wanted == a && is_same(n, b) && is_below(path, live_conf)) {
        sort = fault_sort::kept;
    }
    findings_.push_back({sort, path, description_of(n) + " instead of " + description_of(wanted)});
}

void strict_judge::judge_path(const std::string &path) {
    const node *b = at(before_, path), *a = at(after_, path), *n = at(now_, path);
    if (path == action_log || is_below(path, marks)) {
        return;
    }
    // Where the records of changes lie may stay; a record may not.
    if (path == repository + "/change" && n && n->type == 'd') {
        return;
    }
    const bool is_package_file = path.starts_with(stage_place) && path.ends_with(".vrk") &&
                                 path.find('/', stage_place.size()) == std::string::npos;
    // A package file that was fetched may stay, whatever became of the change.
    if (is_package_file && !b) {
        return;
    }
    const std::string unit = unit_of(path);
    if (!unit.empty()) {
        const node *wanted = is_done(unit) ? a : b;
        if (!is_same(n, wanted)) {
            add_difference(path, wanted);
        }
        return;
    }
    if (is_same(n, b) && is_same(n, a)) {
        return;
    }
    // A directory comes with the first package in it and goes with the last one. One that a change
    // leaves empty, as it fails, may stay or go.
    bool any_done = false, any_not = false;
    for (const std::string &below : units_below(path)) {
        if (sides_.contains(below)) {
            (sides_.at(below) ? any_done : any_not) = true;
        }
    }
    const bool allowed =
        (is_same(n, b) && (any_not || !any_done)) || (is_same(n, a) && (any_done || !any_not));
    if (!allowed) {
        add_difference(path, any_done && !any_not ? a : b);
    }
}

void strict_judge::judge_history() {
    std::vector<std::string> wanted = history_of(before_);
    const std::vector<std::string> all = history_of(after_), present = history_of(now_);
    std::vector<std::string> added;
    std::set_difference(all.begin(), all.end(), wanted.begin(), wanted.end(),
                        std::back_inserter(added));
    for (const std::string &line : added) {
        if (is_done(package_of_line(line))) {
            wanted.push_back(line);
        }
    }
    std::sort(wanted.begin(), wanted.end());
    std::vector<std::string> lacking, wrong;
    std::set_difference(wanted.begin(), wanted.end(), present.begin(), present.end(),
                        std::back_inserter(lacking));
    std::set_difference(present.begin(), present.end(), wanted.begin(), wanted.end(),
                        std::back_inserter(wrong));
    for (const std::string &line : lacking) {
        findings_.push_back({fault_sort::history, action_log, "lacks: " + line});
    }
    for (const std::string &line : wrong) {
        findings_.push_back({fault_sort::history, action_log, "has: " + line});
    }
}

// The marks of the runs that were due after a package was entered.
void strict_judge::judge_scripts() {
    for (const auto &[unit, done] : sides_) {
        for (const char *what : {".99-cfg", ".hook"}) {
            std::string mark = marks;
            mark.append("/").append(unit).append(what);
            if (done && at(after_, mark) && !at(before_, mark) && !at(now_, mark)) {
                findings_.push_back({fault_sort::not_run, unit, "its mark is missing: " + mark});
            }
        }
    }
}

}  // namespace

std::vector<strict_finding> judge_strictly(const strict_scene &scene, const tree &now) {
    return strict_judge(scene, now).judge();
}

std::vector<strict_finding> losses_among(const std::vector<strict_finding> &findings,
                                         const tree &before, const std::string &disturbed) {
    const auto is_loss = [&](const strict_finding &found) {
        const node *was = at(before, found.path);
        switch (found.sort) {
            case fault_sort::unkept:
                // An entry that can't be read counts as not installed, and is left alone.
                return !(disturbed + "/").starts_with(installed + found.path + "/");
            case fault_sort::left_over:
            case fault_sort::history:
            case fault_sort::rights:
                return false;
            case fault_sort::kept:
                // The file itself, or the shipped one in the inventory.
                return !disturbed.ends_with(found.path);
            default:
                return was && was->type == 'f';
        }
    };
    std::vector<strict_finding> losses;
    std::copy_if(findings.begin(), findings.end(), std::back_inserter(losses), is_loss);
    return losses;
}

std::set<std::string> packages_reported(const std::string &output) {
    std::set<std::string> names;
    for (const std::string &line : lines_of(output)) {
        for (const std::string verb : {"installed ", "upgraded to ", "removed "}) {
            const size_t at = line.find(verb);
            // Ahead of it is nothing but the name of the program.
            if (at == std::string::npos || (at != 0 && !line.substr(0, at).ends_with(": "))) {
                continue;
            }
            const std::string id = line.substr(at + verb.size());
            if (id.find('_') != std::string::npos) {
                names.insert(id.substr(0, id.find('_')));
            }
        }
    }
    return names;
}

const char *name_of(fault_sort sort) {
    switch (sort) {
        case fault_sort::damaged:
            return "damaged";
        case fault_sort::missing:
            return "missing";
        case fault_sort::left_over:
            return "left-over";
        case fault_sort::other:
            return "other";
        case fault_sort::kept:
            return "kept";
        case fault_sort::rights:
            return "rights";
        case fault_sort::history:
            return "history";
        case fault_sort::unkept:
            return "unkept";
        case fault_sort::not_run:
            return "not-run";
    }
    return "";
}

std::string text_of(const strict_finding &found) {
    return std::string(name_of(found.sort)) + " " + found.path + ": " + found.what;
}

void print_findings(const std::vector<strict_finding> &findings, bool all) {
    std::vector<strict_finding> sorted = findings;
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const auto &a, const auto &b) { return a.sort < b.sort; });
    constexpr size_t most = 8;
    const size_t shown = all ? findings.size() : std::min(most, findings.size());
    for (size_t i = 0; i < shown; i++) {
        printf("    %s\n", text_of(sorted[i]).c_str());
    }
    if (findings.size() > shown) {
        printf("    and %zu more\n", findings.size() - shown);
    }
}
