#include "transaction/recover_change.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <optional>
#include <set>
#include <unordered_set>

#include "package/fileops.h"
#include "repository/action_log.h"
#include "repository/inventory.h"
#include "repository/left_links.h"
#include "repository/repository.h"
#include "repository/running_script.h"
#include "repository/saved_files.h"
#include "support/atomic_file.h"
#include "support/boundary.h"
#include "support/event.h"
#include "support/file.h"
#include "support/shell.h"
#include "transaction/journal.h"
#include "transaction/record.h"
#include "transaction/recorded_change.h"
#include "transaction/register.h"
#include "transaction/scripts.h"
#include "transaction/stage_area.h"
#include "transaction/touched.h"

namespace {

bool failed(const std::string &path) {
    report({.kind = event_kind::recovery_failed, .path = path, .error = errno});
    return false;
}

bool is_gone(int result) {
    return result == 0 || errno == ENOENT || errno == ENOTDIR;
}

// In the directory of the record: the path of the retired entry that is being removed.
constexpr char removal_note[] = "/removing";

// Removes the rest of a retired entry.
void finish_removal(const vrm_handle *handle) {
    const std::string note = record_directory(handle) + removal_note;
    size_t length = 0;
    const own_string text(_read_file(note.c_str(), &length));
    const std::string path(text ? text.get() : "", length);
    const std::string start = dir_of(handle, "installed") + "/.";
    if (path.starts_with(start) && path.ends_with(".old") &&
        path.find('/', start.size()) == std::string::npos) {
        vrm_vrf_rmdir(path.c_str());
    }
    unlink(note.c_str());
    unlink((note + ".new").c_str());
}

// With what a program left that was killed while it wrote it.
void remove_status(const vrm_handle *handle) {
    unlink(status_path(handle).c_str());
    unlink((status_path(handle) + ".new").c_str());
}

class recovery {
 public:
    recovery(vrm_handle *handle, const read_record &record)
        : handle_(handle), length_(record.length), command_(command_of(record)) {}

    bool run();
    int count() const {
        return count_;
    }

 private:
    bool undo(const recorded_change &change);
    bool remove_new(const touched_paths &touched);
    bool remove_saved(const recorded_change &change);
    bool finish(const recorded_change &change);
    bool write_history(const recorded_change &change);
    void run_due(const recorded_change &change);
    bool clear_stage_area();
    bool is_for_a_look(const std::string &stage) const;
    bool remove_stage(const std::string &stage);
    bool mark(const recorded_change &change, const std::string &what);

    vrm_handle *handle_;
    const size_t length_;
    const recorded_command command_;
    touched_systems systems_;
    bool needs_ldconfig_ = false;
    int count_ = 0;
};

// Removes what was not there before, files ahead of the directories around them.
bool recovery::remove_new(const touched_paths &touched) {
    std::vector<std::string> directories;
    std::set<std::string> around;
    const std::unordered_set<std::string> gone(touched.gone_links.begin(),
                                               touched.gone_links.end());
    for (const std::string &path : touched.absent) {
        if (leads_through_link(gone, path)) {
            continue;
        }
        systems_.add_directory_of(path);
        around.insert(path.substr(0, path.rfind('/')));
        if (is_gone(unlink(path.c_str()))) {
            continue;
        }
        if (errno != EISDIR && errno != EPERM) {
            return failed(path);
        }
        directories.push_back(path);
    }
    for (const kept_path &kept : touched.kept) {
        systems_.add_directory_of(kept.path);
        around.insert(kept.path.substr(0, kept.path.rfind('/')));
    }
    for (const std::string &directory : around) {
        const std::string beside = directory + "/" + touched.temporary;
        if (!is_gone(unlink(beside.c_str()))) {
            return failed(beside);
        }
    }
    std::for_each(directories.rbegin(), directories.rend(), [](const std::string &directory) {
        rmdir(directory.c_str());  // what others put there keeps it
    });
    return true;
}

// Removes the copies that the change made of files that belong to nobody, as these are back.
bool recovery::remove_saved(const recorded_change &change) {
    for (const std::string &set : change.saved_sets) {
        if (vrm_vrf_rmdir(set.c_str()) != 0) {
            return false;
        }
    }
    // One that was made and not recorded any more.
    remove_empty_sets(handle_);
    for (const std::string &directory : change.absent) {
        rmdir(directory.c_str());
    }
    return true;
}

bool recovery::undo(const recorded_change &change) {
    const inventory_places places = inventory_places_of(handle_, change.name.c_str());
    if (change.touch) {
        const touched_paths touched = touched_of(change, command_.temporary);
        // First what paths lead through.
        if (!restore_ways(touched) || !remove_new(touched) || !restore_kept(touched) ||
            !restore_modes(touched)) {
            return false;
        }
        // A last script may have run it.
        if (change.scripts.size() > 1 && !change.touch->value("libraries").empty()) {
            needs_ldconfig_ = true;
        }
    }
    drop_new_registration(places);
    // What is saved goes only when what was restored is on the disk.
    systems_.add(handle_->dir);
    if (!systems_.sync()) {
        return failed(handle_->dir);
    }
    if (!remove_saved(change)) {
        return false;
    }
    for (const std::string &script : change.scripts) {
        report({.kind = event_kind::cut_off_script_ran, .package = change.puname, .other = script});
    }
    report({.kind = event_kind::change_undone,
            .package = change.puname,
            .other = noun_of(change.operation)});
    count_++;
    return true;
}

bool recovery::write_history(const recorded_change &change) {
    const record_entry &commit = *change.commit;
    if (commit.value("action").empty()) {
        return true;
    }
    const std::string path = std::string(vrm_action_log_dir) + "/" + vrm_action_log_name;
    const auto size = leading_number<int64_t>(commit.value("history"));
    const own_file file(fopen(path.c_str(), "re"));
    std::string added;
    if (file && fseek(file.get(), size, SEEK_SET) == 0) {
        for (int c = getc(file.get()); c != EOF && c != '\n'; c = getc(file.get())) {
            added.push_back(static_cast<char>(c));
        }
        if (!feof(file.get()) && added.find(" " + commit.value("new") + " ") != std::string::npos) {
            return true;
        }
    }
    // What was torn.
    if (!added.empty() && truncate(path.c_str(), size) != 0) {
        return failed(path);
    }
    const std::string &old = commit.value("old"), &head = commit.value("head");
    vrm_log_action(leading_number<int>(commit.value("action")), old.empty() ? nullptr : old.c_str(),
                   commit.value("new").c_str(), head.empty() ? nullptr : head.c_str());
    return true;
}

// Goes on where the change was cut off. Of the steps those that were done change nothing.
bool recovery::finish(const recorded_change &change) {
    const record_entry &commit = *change.commit;
    const inventory_places places = inventory_places_of(handle_, change.name.c_str());
    if (change.operation == "remove") {
        drop_registration(places);
        note_removed_links(handle_, change.name.c_str());
        if (path_exists(places.entry)) {
            return failed(places.entry);
        }
    } else {
        const bool is_update = change.operation == "update";
        if (!enter_built(places, is_update, !commit.value("has_data").empty())) {
            return failed(places.entry);
        }
        if (is_update) {
            note_left_links(handle_, change.name.c_str(), places.old_entry + "/link.txt",
                            places.entry + "/link.txt");
            drop_old_registration(places);
        }
    }
    needs_ldconfig_ = needs_ldconfig_ || !commit.value("libraries").empty();
    return write_history(change);
}

bool recovery::mark(const recorded_change &change, const std::string &what) {
    record_entry entry("did");
    entry.add("name", change.name);
    entry.add("due", what);
    const own_fd record(open(record_path(handle_).c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
    return record.valid() && write_all(record.get(), entry.text());
}

void recovery::run_due(const recorded_change &change) {
    if (change.due.empty()) {
        return;
    }
    vrt transaction = {};
    vrt *address = &transaction;
    for (const std::string &what : change.due) {
        s_ekva **pairs = ekva_new(1, 1);
        if (!pairs || ekva_addval(&pairs, change.name.c_str(), what.c_str(), 0) < 1) {
            ekva_free(pairs);
            throw std::bad_alloc();
        }
        const own_ekva list(pairs);
        if (what.starts_with('/')) {
            vrm_exe_hooks(list.get());
        } else {
            transaction.scripts = list.get();
            vrm_scripts_exe(handle_, &address);
            transaction.scripts = nullptr;
        }
        // Without the mark it runs once more when the recovery is cut off. It must not reach the
        // disk ahead of what was done.
        systems_.add(handle_->dir);
        if (systems_.sync()) {
            mark(change, what);
        }
    }
}

bool recovery::remove_stage(const std::string &stage) {
    if (vrm_vrf_rmdir(stage.c_str()) != 0) {
        errno = EIO;
        return failed(stage);
    }
    return true;
}

// Whether a change that failed left its unpacked package there.
bool recovery::is_for_a_look(const std::string &stage) const {
    return std::any_of(command_.changes.begin(), command_.changes.end(),
                       [&](const recorded_change &change) {
                           return change.undone && !change.touch && change.stage == stage;
                       });
}

// Removes the stage directories of the record, and those of which nothing of value is left: the
// machine may have died ahead of the entry for one.
bool recovery::clear_stage_area() {
    for (const recorded_change &change : command_.changes) {
        if ((!change.undone || change.touch) && !remove_stage(change.stage)) {
            return false;
        }
    }
    const std::string area = dir_of(handle_, "stagearea");
    const own_dir dir(opendir(area.c_str()));
    while (const dirent *found = dir ? readdir(dir.get()) : nullptr) {
        const std::string base = std::string(area).append("/").append(found->d_name);
        struct stat status;
        if (found->d_name[0] != '.' && lstat(base.c_str(), &status) == 0 &&
            S_ISDIR(status.st_mode) && !is_for_a_look(base) && !has_backups(base) &&
            !remove_stage(base)) {
            return false;
        }
    }
    return true;
}

bool recovery::run() {
    const std::string path = record_path(handle_);
    // Marks are appended: what is torn goes.
    struct stat status;
    if (stat(path.c_str(), &status) == 0 && static_cast<size_t>(status.st_size) > length_ &&
        truncate(path.c_str(), static_cast<off_t>(length_)) != 0) {
        return failed(path);
    }
    for (const recorded_change &change : command_.changes) {
        if (change.commit && !change.undone && !finish(change)) {
            return false;
        }
    }
    for (const recorded_change &change : command_.changes) {
        if (!change.commit && !change.undone && !undo(change)) {
            return false;
        }
    }
    if (needs_ldconfig_) {
        run_shell("/sbin/ldconfig 2>/dev/null");
    }
    if (!clear_stage_area()) {
        return false;
    }
    for (const recorded_change &change : command_.changes) {
        if (change.commit && !change.undone) {
            const bool is_news = !change.done || !change.due.empty();
            run_due(change);
            if (!is_news) {
                continue;
            }
            report({.kind = event_kind::change_finished,
                    .package = change.puname,
                    .other = noun_of(change.operation)});
            count_++;
        }
    }
    systems_.add(handle_->dir);
    systems_.add("/etc");
    if (!systems_.sync()) {
        return failed(handle_->dir);
    }
    if (!is_gone(unlink(path.c_str())) || !sync_directory(record_directory(handle_))) {
        return failed(path);
    }
    remove_status(handle_);
    return true;
}

bool not_read(const vrm_handle *handle) {
    report({.kind = event_kind::record_not_read, .path = record_path(handle), .error = errno});
    return false;
}

// Reads the record, which is empty when there is none. False with an ERROR line.
bool read_for_recovery(const vrm_handle *handle, read_record *record) {
    if (!read_record_of(handle, record)) {
        return errno == ENOENT || not_read(handle);
    }
    if (!record->refusal.empty()) {
        report({.kind = event_kind::record_not_read,
                .path = record_path(handle),
                .other = record->refusal});
        return false;
    }
    return true;
}

// Whether the record is this user's alone: it names paths that are removed and written. False with
// an ERROR line.
bool is_record_trusted(const vrm_handle *handle) {
    const std::string path = record_path(handle), directory = record_directory(handle);
    const std::string fault = fault_of_directory(directory);
    if (!fault.empty()) {
        report({.kind = event_kind::record_not_read, .path = directory, .other = fault});
        return false;
    }
    struct stat status;
    if (lstat(path.c_str(), &status) == 0 && (status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        report(
            {.kind = event_kind::record_not_read, .path = path, .other = "others may write to it"});
        return false;
    }
    return true;
}

// And whether what is to be put back is.
bool are_stages_trusted(const vrm_handle *handle, const read_record &record) {
    static constexpr char me[] = "vrm_recover_change";
    const recorded_command command = command_of(record);
    return is_stage_area_trusted(me, handle) &&
           std::all_of(command.changes.begin(), command.changes.end(),
                       [](const recorded_change &change) {
                           return are_saved_files_trusted(me, change.stage);
                       });
}

// The note of the change that is under way or was cut off.
std::optional<running_script> status_of(const vrm_handle *handle) {
    std::string why;
    return read_note(status_path(handle), &why);
}

// Moves what was saved for a change to a directory of saved files. False with an ERROR line.
bool move_away(const recorded_change &change, const std::string &directory) {
    const std::string target = directory + "/" + change.puname;
    return !path_exists(change.stage) || rename(change.stage.c_str(), target.c_str()) == 0 ||
           failed(change.stage);
}

std::string directory_for_abandoned(const vrm_handle *handle) {
    char moment[sizeof "2026-11-21T20:00:00"];
    const time_t now = time(nullptr);
    struct tm parts;
    if (!localtime_r(&now, &parts) ||
        strftime(moment, sizeof moment, "%Y-%m-%dT%H:%M:%S", &parts) == 0) {
        return "";
    }
    mkdir(saved_directory(handle).c_str(), 0700);
    const std::string directory = saved_directory(handle) + "/" + moment + "_abandoned";
    return mkdir(directory.c_str(), 0700) == 0 ? directory : "";
}

}  // namespace

int remove_retired_entry(const char *path) {
    return guarded(-1, [path] {
        std::string change(path);
        change.erase(change.rfind('/'));
        change.replace(change.rfind('/'), std::string::npos, "/change");
        mkdir(change.c_str(), 0700);
        const std::string note = change + removal_note;
        write_atomically(note, path, 0600, durability::synced);
        const int removed = vrm_vrf_rmdir(path);
        unlink(note.c_str());
        return removed;
    });
}

// Runs the body of a function that needs the lock.
template <typename Body>
static int under_lock(const vrm_handle *handle, const char *who, const Body &body) {
    return guarded(who, -1, [&] {
        if (!handle->locked) {
            report({.kind = event_kind::not_locked, .who = who});
            return -1;
        }
        return body();
    });
}

int vrm_recover_change(vrm_handle *handle) {
    return under_lock(handle, "vrm_recover_change", [&] {
        finish_removal(handle);
        if (!path_exists(record_path(handle))) {
            remove_status(handle);
            return 0;
        }
        read_record record;
        if (!is_record_trusted(handle) || !read_for_recovery(handle, &record) ||
            !are_stages_trusted(handle, record)) {
            return -1;
        }
        recovery work(handle, record);
        return work.run() ? work.count() : -1;
    });
}

int vrm_show_recovery(vrm_handle *handle) {
    return guarded("vrm_show_recovery", -1, [&] {
        read_record record;
        if (!path_exists(record_path(handle)) || (!handle->locked && vrm_lock_holder(handle) > 0)) {
            return 0;
        }
        if (!read_for_recovery(handle, &record)) {
            return -1;
        }
        int count = 0;
        for (const recorded_change &change : command_of(record).changes) {
            const bool is_over = change.undone || (change.done && change.due.empty());
            if (!is_over) {
                report({.kind = change.commit ? event_kind::change_to_finish
                                              : event_kind::change_to_undo,
                        .package = change.puname,
                        .other = noun_of(change.operation)});
                count++;
            }
        }
        return count;
    });
}

int vrm_abandon_change(vrm_handle *handle) {
    return under_lock(handle, "vrm_abandon_change", [&] {
        const std::string path = record_path(handle);
        if (!path_exists(path)) {
            return 0;
        }
        // What it names is moved.
        if (!is_record_trusted(handle) || !is_stage_area_trusted("vrm_abandon_change", handle)) {
            return -1;
        }
        // Also one that can't be read: its text is all that is known then.
        read_record record;
        read_record_of(handle, &record);
        const std::string directory = directory_for_abandoned(handle);
        if (directory.empty()) {
            failed(saved_directory(handle));
            return -1;
        }
        for (const recorded_change &change : command_of(record).changes) {
            if (!move_away(change, directory)) {
                return -1;
            }
        }
        if (rename(path.c_str(), (directory + "/record").c_str()) != 0) {
            failed(path);
            return -1;
        }
        sync_directory(directory);
        sync_directory(record_directory(handle));
        remove_status(handle);
        report({.kind = event_kind::change_abandoned, .path = directory});
        return 0;
    });
}

int vrm_cut_off_change(vrm_handle *handle, char **what) {
    return guarded("vrm_cut_off_change", 0, [&] {
        *what = nullptr;
        const auto note = status_of(handle);
        if (!note || still_runs(*note) || vrm_lock_holder(handle) > 0 || handle->locked) {
            return 0;
        }
        *what = strdup((std::string(noun_of(note->command)) + " of " + note->package).c_str());
        return *what ? 1 : 0;
    });
}
