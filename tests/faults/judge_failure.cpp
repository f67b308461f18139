// After a run in which one operation failed.
#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <string_view>

#include "faults/judge.h"
#include "faults/judged_tree.h"

namespace {

class failure_judge {
 public:
    failure_judge(const scene &expected, const failed_run &run)
        : expected_(expected),
          run_(run),
          op_(run.disturbed),
          before_(without_times(expected.before)),
          after_(without_times(expected.after)),
          now_(without_times(run.now)),
          rolled_back_(run.log.find("vrm_install_rollback:") != std::string::npos) {}

    std::vector<finding> judge() {
        for (const package_paths &package : expected_.packages) {
            judge_package(package);
        }
        judge_own_places();
        judge_history();
        judge_foreign();
        judge_status();
        return std::move(findings_);
    }

 private:
    enum class state { before, after, neither };

    void fault(const std::string &path, const std::string &what) {
        findings_.push_back({std::nullopt, path, what});
    }
    void tell(told reason, const std::string &path) {
        findings_.push_back({reason, path, description_of(at(now_, path))});
    }
    // Told when the condition holds, else a fault.
    void tell_if(bool condition, told reason, const std::string &path, const node *wanted) {
        if (condition) {
            tell(reason, path);
        } else {
            fault(path, description_of(at(now_, path)) + " instead of " + description_of(wanted));
        }
    }
    bool disturbed(std::initializer_list<std::string_view> calls) const {
        return std::find(calls.begin(), calls.end(), op_.call) != calls.end();
    }
    bool logged(const std::string &text) const {
        return run_.log.find(text) != std::string::npos;
    }

    void judge_package(const package_paths &package);
    state registered_as(const package_paths &package);
    bool mode_is_told(const std::string &path) const;
    bool is_on_restoration(const std::string &path) const;
    void judge_data(const std::string &path, state is);
    void judge_conf(const std::string &path, state is);
    void judge_link(const std::string &path, state is);
    void judge_own_places();
    void judge_history();
    void judge_foreign();
    void judge_status();

    const scene &expected_;
    const failed_run &run_;
    const operation &op_;
    const tree before_, after_, now_;
    const bool rolled_back_;
    std::map<std::string, state> states_;
    std::set<std::string> judged_;    // paths of packages
    std::vector<std::string> perms_;  // those to which perm.txt gives a mode
    std::vector<finding> findings_;
};

// Whether two entries differ in nothing but the mode of the file that was disturbed.
bool differs_only_in_mode(const tree &a, tree b, const std::string &path) {
    const auto found = b.find(path);
    const node *other = at(a, path);
    if (found != b.end() && other) {
        found->second.mode = other->mode;
    }
    return a == b;
}

failure_judge::state failure_judge::registered_as(const package_paths &package) {
    const std::string entry = installed + package.name, index = fileindex + package.name;
    const tree present = entry_of(now_, package.name);
    const tree old_entry = entry_of(before_, package.name);
    const tree new_entry = entry_of(after_, package.name);
    const bool old_index = is_same(at(now_, index), at(before_, index));
    const bool new_index = is_same(at(now_, index), at(after_, index));
    // A package that the change leaves alone is as before.
    if (present == old_entry && old_index) {
        return state::before;
    }
    if (present == new_entry && new_index) {
        return state::after;
    }
    // An update builds its entry under another name.
    std::string disturbed_path = op_.path;
    const std::string built = installed + "." + package.name + ".new";
    if (is_below(disturbed_path, built)) {
        disturbed_path = entry + disturbed_path.substr(built.size());
    }
    if (disturbed({"fchmod", "chmod"}) && new_index &&
        differs_only_in_mode(present, new_entry, disturbed_path)) {
        tell(told::mode_not_set, disturbed_path);
        return state::after;
    }
    const bool was_there = !old_entry.empty();
    const bool stays = !new_entry.empty();
    const bool on_registration = is_below(op_.path, entry) || op_.path == index;
    if (was_there && !stays && on_registration &&
        disturbed({"unlink", "rmdir", "look into", "readdir", "stat"})) {
        tell(told::removal_not_finished, op_.path);
        return state::after;
    }
    if (was_there && stays && disturbed({"rename"}) &&
        (on_registration || is_below(op_.other, entry) || op_.other == index)) {
        tell(told::swap_not_finished, op_.path);
        if (present != new_entry && run_.success_told) {
            fault(entry, "not the new one, and yet told as a success");
        }
        return state::after;
    }
    fault(entry, "half registered");
    return state::neither;
}

bool failure_judge::mode_is_told(const std::string &path) const {
    // Of the file itself, or of its backup, from which a rollback took it.
    // A file whose access control list is not known gives its group nothing.
    return disturbed({"fchmod", "chmod", "flistxattr"}) && op_.path.ends_with(path);
}

// A second failure, in a change that was being taken back anyway.
bool failure_judge::is_on_restoration(const std::string &path) const {
    return expected_.fails && rolled_back_ &&
           (op_.path == path || op_.path.ends_with("/old" + path) ||
            op_.path.ends_with("/old/index.txt"));
}

void failure_judge::judge_data(const std::string &path, state is) {
    const node *old_file = at(before_, path), *new_file = at(after_, path);
    const node *wanted = is == state::after ? new_file : old_file;
    const node *present = at(now_, path);
    if (is_same(present, wanted)) {
        return;
    }
    const bool same_content = is_same_content(present, wanted);
    const bool by_perm = op_.call == "chmod";
    if (same_content && (by_perm || op_.path.ends_with("/perm.txt"))) {
        tell_if(has(perms_, path), told::perm_not_set, path, wanted);
        return;
    }
    if (same_content && mode_is_told(path)) {
        tell(told::mode_not_set, path);
        return;
    }
    if (is == state::after && !wanted) {
        const bool on_it = op_.path == path && disturbed({"unlink", "stat"});
        tell_if(on_it && is_same(present, old_file), told::not_deleted, path, wanted);
        return;
    }
    if (is == state::before && !wanted) {
        tell_if(rolled_back_ && op_.path == path && op_.call == "unlink", told::new_version_stays,
                path, wanted);
        return;
    }
    const auto begin = run_.trace.begin();
    const auto end = begin + static_cast<std::ptrdiff_t>(run_.number);
    const bool reached = std::any_of(begin, end, [&path](const operation &op) {
        return op.path == path && op.call == "unlink";
    });
    if (is == state::before && rolled_back_ && !present && !reached) {
        tell(told::not_reached, path);
        return;
    }
    tell_if(is == state::before && reached && is_on_restoration(path), told::not_restored, path,
            wanted);
}

void failure_judge::judge_conf(const std::string &path, state is) {
    const node *old_file = at(before_, path), *new_file = at(after_, path);
    const node *wanted = is == state::after ? new_file : old_file;
    const node *present = at(now_, path);
    if (is_same(present, wanted)) {
        return;
    }
    if (is_same_content(present, wanted) && mode_is_told(path)) {
        tell(told::mode_not_set, path);
    } else if (is == state::after && is_same(present, old_file) && !op_.changes) {
        tell_if(op_.path.ends_with(path), told::conf_unread, path, wanted);
    } else if (is == state::before && !old_file && present) {
        // Which content is the right one is known when the change gets through or when it ends
        // after the configuration.
        tell_if(is_same_content(present, new_file), told::conf_stays, path, wanted);
    } else {
        tell_if(is == state::before && is_on_restoration(path), told::not_restored, path, wanted);
    }
}

void failure_judge::judge_link(const std::string &path, state is) {
    const node *old_link = at(before_, path), *new_link = at(after_, path);
    const node *wanted = is == state::after ? new_link : old_link;
    const node *present = at(now_, path);
    if (is_same(present, wanted)) {
        return;
    }
    const bool known = !present || is_same(present, old_link) || is_same(present, new_link);
    const bool on_links =
        op_.path == path || op_.path == directory_of(path) || op_.path.ends_with("/link.txt");
    if (known && on_links) {
        tell(told::link_not_made, path);
        return;
    }
    tell_if(is == state::before && rolled_back_ && is_same(present, new_link), told::links_stay,
            path, wanted);
}

void failure_judge::judge_package(const package_paths &package) {
    const state is = registered_as(package);
    states_[package.name] = is;
    perms_ = package.perms;
    for (const auto *list : {&package.data, &package.conf, &package.links}) {
        judged_.insert(list->begin(), list->end());
    }
    if (is == state::neither) {
        return;  // which files would be right?
    }
    for (const std::string &path : package.data) {
        judge_data(path, is);
    }
    for (const std::string &path : package.conf) {
        judge_conf(path, is);
    }
    for (const std::string &path : package.links) {
        judge_link(path, is);
    }
}

// What the engine makes for itself and takes away at the end.
void failure_judge::judge_own_places() {
    const bool clearing = disturbed({"unlink", "rmdir", "look into", "readdir", "stat"});
    std::set<std::string> told_already;
    for (const auto &[path, what] : now_) {
        if (is_below(path, stagearea) && path != stagearea) {
            const size_t end = path.find('/', stagearea.size() + 1);
            const std::string base = path.substr(0, end);
            if (base.ends_with(".vrk") || !told_already.insert(base).second) {
                continue;
            }
            if (logged("Failure unpacking ") || logged("Failure checking ") ||
                logged(": cannot install ")) {
                tell(told::stage_kept, base);
            } else {
                tell_if(clearing && is_below(op_.path, base), told::not_cleared, base, nullptr);
            }
            continue;
        }
        for (const std::string &directory : {installed, fileindex}) {
            if (!path.starts_with(directory + ".")) {
                continue;
            }
            const std::string base = path.substr(0, path.find('/', directory.size()));
            if (!told_already.insert(base).second) {
                continue;
            }
            if (op_.call == "rename") {
                tell(told::swap_not_finished, base);
            } else {
                tell_if(clearing && is_below(op_.path, base), told::not_cleared, base, nullptr);
            }
        }
        if (path.starts_with("/tmp/") || path == lock_file || path.starts_with(script_note)) {
            tell_if(op_.call == "unlink" && op_.path == path, told::not_cleared, path, nullptr);
        }
    }
}

void failure_judge::judge_history() {
    std::vector<std::string> wanted = history_of(before_);
    const std::vector<std::string> all = history_of(after_), present = history_of(now_);
    std::vector<std::string> added;
    std::set_difference(all.begin(), all.end(), wanted.begin(), wanted.end(),
                        std::back_inserter(added));
    for (const std::string &line : added) {
        const state is = states_[package_of_line(line)];
        if (is == state::after || (is == state::neither && has(present, line))) {
            wanted.push_back(line);
        }
    }
    std::sort(wanted.begin(), wanted.end());
    if (present != wanted) {
        const bool lacks =
            std::includes(wanted.begin(), wanted.end(), present.begin(), present.end());
        tell_if(op_.path == action_log && lacks, told::not_logged, action_log,
                at(after_, action_log));
    }
}

void failure_judge::judge_foreign() {
    add_foreign_changes(before_, now_, judged_, &findings_);
}

void failure_judge::judge_status() {
    if (!run_.success_told) {
        return;
    }
    const bool entry_unread = op_.path.starts_with(installed) && !op_.changes;
    if (expected_.fails) {
        if (entry_unread) {
            tell(told::entry_unread, op_.path);
        } else {
            fault("", "a change that fails by itself is told as a success");
        }
        return;
    }
    for (const package_paths &package : expected_.packages) {
        const bool changes = entry_of(before_, package.name) != entry_of(after_, package.name);
        if (!changes || states_[package.name] != state::before) {
            continue;
        }
        if (entry_unread) {
            tell(told::entry_unread, op_.path);
        } else {
            fault(installed + package.name, "not changed, and yet told as a success");
        }
    }
}

}  // namespace

std::vector<finding> judge_failure(const scene &expected, const failed_run &run) {
    return failure_judge(expected, run).judge();
}
