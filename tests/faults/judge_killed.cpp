// After a kill, ahead of any repetition.
#include <algorithm>

#include "faults/judge.h"
#include "faults/judged_tree.h"

namespace {

class killed_judge {
 public:
    killed_judge(const scene &expected, const tree &killed, const std::set<std::string> &listed)
        : packages_(expected.packages),
          before_(without_times(expected.before)),
          after_(without_times(expected.after)),
          killed_(without_times(killed)),
          listed_(listed) {}

    // What the backups are good for.
    std::vector<finding> judge_recovered(const tree &now) {
        for (const package_paths &package : packages_) {
            if (is_done(package.name)) {
                continue;
            }
            for (const auto *list : {&package.data, &package.conf}) {
                for (const std::string &path : *list) {
                    const node *old_file = at(before_, path), *present = at(now, path);
                    if (old_file && !is_same(present, old_file)) {
                        findings_.push_back({std::nullopt, path,
                                             description_of(present) + " put back instead of " +
                                                 description_of(old_file)});
                    }
                }
            }
        }
        return std::move(findings_);
    }

    std::vector<finding> judge() {
        std::set<std::string> paths;
        for (const package_paths &package : packages_) {
            judge_registration(package.name);
            for (const auto *list : {&package.data, &package.conf, &package.links}) {
                paths.insert(list->begin(), list->end());
            }
            judge_old_files(package);
        }
        add_foreign_changes(before_, killed_, paths, &findings_);
        return std::move(findings_);
    }

 private:
    void judge_registration(const std::string &name);
    void judge_old_files(const package_paths &package);
    bool has_backup(const std::string &path) const;
    bool is_done(const std::string &name) const;

    const std::vector<package_paths> &packages_;
    const tree before_, after_, killed_;
    const std::set<std::string> &listed_;
    std::vector<finding> findings_;
};

// A package that is listed is a whole one, with its list of files. What is not listed is not there,
// or it is a new entry that is not finished, which passes for none.
void killed_judge::judge_registration(const std::string &name) {
    const std::string place = installed + name, index = fileindex + name;
    const tree entry = entry_of(killed_, name), old_entry = entry_of(before_, name),
               new_entry = entry_of(after_, name);
    const bool was = !old_entry.empty(), will_be = !new_entry.empty();
    const bool is_listed = listed_.contains(name);
    const bool is_old = was && entry == old_entry, is_new = will_be && entry == new_entry;
    const bool has_old_index = is_same(at(killed_, index), at(before_, index));
    const bool has_new_index = is_same(at(killed_, index), at(after_, index));
    // As far as it was written.
    const node *present_index = at(killed_, index), *whole_index = at(after_, index);
    const bool lacks_index =
        !present_index || (whole_index && whole_index->content.starts_with(present_index->content));
    const bool set_aside =
        part_of(killed_, installed + "." + name + ".old").size() == old_entry.size();

    const bool is_whole =
        is_listed ? (is_old && has_old_index) || (is_new && has_new_index)
                  : (!was && has_old_index) || (!will_be && entry.empty() && has_new_index);
    if (is_whole) {
        return;
    }
    std::optional<told> reason;
    if (was && will_be && set_aside && ((is_listed && is_new) || (!is_listed && entry.empty()))) {
        reason = told::killed_mid_swap;
    } else if (is_listed && is_new && !was && lacks_index) {
        reason = told::killed_unindexed;
    } else if (is_listed && is_old && !will_be && has_new_index) {
        reason = told::killed_half_removed;
    }
    findings_.push_back(
        {reason, place, is_listed ? "listed, and not as a whole" : "not listed, and not gone"});
}

// A backup that a rollback, or an administrator, would find.
bool killed_judge::has_backup(const std::string &path) const {
    const std::string ending = "/old/index.txt";
    return std::any_of(killed_.begin(), killed_.end(), [&](const auto &one) {
        const auto &[file, what] = one;
        return is_below(file, stagearea) && file.ends_with(ending) &&
               has(lines_of(what.content), path) &&
               is_same_content(at(killed_, file.substr(0, file.size() - 10) + path),
                               at(before_, path));
    });
}

// Whether the old files have served. A removal that gets through clears its backups away ahead of
// its registration: its files are to go.
bool killed_judge::is_done(const std::string &name) const {
    const tree entry = entry_of(killed_, name), old_entry = entry_of(before_, name),
               new_entry = entry_of(after_, name);
    const bool is_removal = !old_entry.empty() && new_entry.empty();
    return is_removal || (entry != old_entry && entry == new_entry);
}

// Until the change is registered, the content of each file that it replaces or deletes is on the
// disk, in its place or as a backup.
void killed_judge::judge_old_files(const package_paths &package) {
    if (is_done(package.name)) {
        return;
    }
    for (const auto *list : {&package.data, &package.conf}) {
        for (const std::string &path : *list) {
            const node *old_file = at(before_, path), *present = at(killed_, path);
            if (old_file && !is_same_content(present, old_file) && !has_backup(path)) {
                findings_.push_back(
                    {std::nullopt, path,
                     description_of(present) + ", and no backup of " + description_of(old_file)});
            }
        }
    }
}

}  // namespace

std::vector<finding> judge_killed(const scene &expected, const tree &killed,
                                  const std::set<std::string> &listed) {
    return killed_judge(expected, killed, listed).judge();
}

std::vector<finding> judge_recovery(const scene &expected, const tree &killed, const tree &now) {
    return killed_judge(expected, killed, {}).judge_recovered(now);
}
