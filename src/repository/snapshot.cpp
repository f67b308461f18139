#include "repository/snapshot.h"

#include <dirent.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <new>
#include <utility>

#include "repository/inventory.h"
#include "support/event.h"
#include "support/own.h"

// ---- What identifies a state ----

// The clock that the kernel takes change times from.
static timespec file_clock() {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return now;
}

std::string inventory_snapshot::directory() const {
    const char *installed = ekva_getval(handle_->dirs, "installed");
    return installed ? installed : "";
}

inventory_snapshot::stamp inventory_snapshot::stamp_of(const std::string &path, bool follow) {
    struct stat status;
    if ((follow ? stat(path.c_str(), &status) : lstat(path.c_str(), &status)) != 0) {
        return {.error = errno};
    }
    return {0, status.st_dev, status.st_ino, status.st_ctim.tv_sec, status.st_ctim.tv_nsec};
}

// The texts are read through links.
inventory_snapshot::entry_stamp inventory_snapshot::stamps_of(const std::string &name) const {
    const std::string entry = directory() + "/" + name;
    entry_stamp seen = {stamp_of(entry, false), {}, {}};
    if (seen.directory.error == 0) {
        seen.description = stamp_of(entry + "/desc.txt", true);
        seen.install_record = stamp_of(entry + "/inst.txt", true);
    }
    return seen;
}

// Whether the change times are older than `before`, a reading of the clock ahead of them: then each
// change from there on gets another time. Nobody but its holder makes changes under the lock.
template <class... Stamps>
bool inventory_snapshot::is_settled(const timespec &before, const Stamps &...stamps) const {
    const auto is_older = [&before](const stamp &seen) {
        return std::pair(seen.seconds, seen.nanoseconds) <
               std::pair<int64_t, int64_t>(before.tv_sec, before.tv_nsec);
    };
    return handle_->locked == 1 || (is_older(stamps) && ...);
}

// ---- One package ----

void inventory_snapshot::read_record(const std::string &name, known *entry) {
    readings_++;
    entry->info.reset(vrm_vrl_info(handle_, name.c_str()));
}

inventory_snapshot::known &inventory_snapshot::look_at(const std::string &name) {
    if (const auto place = known_.find(name); place != known_.end()) {
        return place->second;
    }
    const timespec before = file_clock();
    known entry;
    entry.seen = stamps_of(name);
    entry.is_settled =
        is_settled(before, entry.seen.directory, entry.seen.description, entry.seen.install_record);
    if (entry.is_there()) {
        read_record(name, &entry);
    }
    return known_.emplace(name, std::move(entry)).first->second;
}

const vri *inventory_snapshot::find(const std::string &name) {
    // Such a name would be looked for somewhere else. It is not an entry's.
    if (name.empty() || name.front() == '.' || name.find('/') != std::string::npos) {
        return nullptr;
    }
    const bool is_new = !known_.contains(name);
    const known &entry = look_at(name);
    if (!is_new && !entry.info && entry.is_there()) {
        known again;  // for the reason, which is reported; what was answered stays the answer
        read_record(name, &again);
    }
    return entry.info.get();
}

const vri *inventory_snapshot::find_own(const std::string &name) {
    const vri *info = find(name);
    return info && name == info->name ? info : nullptr;
}

// ---- All packages ----

static bool is_ahead(const vri *a, const vri *b) {
    return vri_compare(&a, &b) < 0;
}

inventory_snapshot::listing inventory_snapshot::read_names() const {
    listing found;
    own_dir dir(opendir(directory().c_str()));
    if (!dir) {
        found.errors.open = errno;
        return found;
    }
    for (;;) {
        errno = 0;
        const dirent *entry = readdir(dir.get());
        if (!entry) {
            found.errors.read = errno;
            break;
        }
        const bool is_directory = entry->d_type == DT_DIR;
        if (!is_directory || entry->d_name[0] != '.') {
            found.names.push_back({entry->d_name, is_directory});
        }
    }
    if (closedir(dir.release()) != 0) {
        found.errors.close = errno;
    }
    return found;
}

void inventory_snapshot::need_list() {
    if (has_list_) {
        return;
    }
    const timespec before = file_clock();
    list_seen_ = stamp_of(directory(), true);
    is_list_settled_ = is_settled(before, list_seen_);
    list_ = read_names();
    has_list_ = true;
}

void inventory_snapshot::need_entries() {
    need_list();
    if (has_entries_) {
        return;
    }
    entries_.clear();
    for (const listed &one : list_.names) {
        entries_.push_back({one.name, one.is_directory,
                            one.is_directory ? look_at(one.name).info.get() : nullptr});
    }
    has_entries_ = true;
}

const std::vector<inventory_snapshot::listed_entry> &inventory_snapshot::entries() {
    need_entries();
    return entries_;
}

inventory_snapshot::list_errors inventory_snapshot::errors() {
    need_list();
    return list_.errors;
}

const std::vector<const vri *> &inventory_snapshot::packages() {
    need_list();
    if (has_packages_) {
        return packages_;
    }
    packages_.clear();
    for (const listed &one : list_.names) {
        if (!one.is_directory) {
            continue;
        }
        // This reports why an entry is damaged, also when an earlier question read it.
        if (const vri *info = find(one.name)) {
            packages_.push_back(info);
        } else if (!std::exchange(known_[one.name].is_reported, true)) {
            log_passed_over(one.name.c_str());
        }
    }
    report_list_errors();
    if (list_.errors.open != 0 || list_.errors.read != 0) {
        packages_.clear();
    }
    std::stable_sort(packages_.begin(), packages_.end(), is_ahead);
    has_packages_ = true;
    return packages_;
}

std::vector<std::string> inventory_snapshot::names() {
    need_entries();
    report_list_errors();
    std::vector<std::string> found;
    if (list_.errors.open != 0 || list_.errors.read != 0) {
        return found;
    }
    for (const listed_entry &one : entries_) {
        if (one.info) {
            found.emplace_back(one.info->name);
        }
    }
    std::sort(found.begin(), found.end());
    return found;
}

void inventory_snapshot::report_list_errors() const {
    const auto say = [this](event_kind kind, int error) {
        if (error != 0) {
            report({.kind = kind, .path = directory(), .error = error});
        }
    };
    say(event_kind::inventory_not_opened, list_.errors.open);
    say(event_kind::inventory_not_read, list_.errors.read);
    if (list_.errors.read == 0) {
        say(event_kind::inventory_not_closed, list_.errors.close);
    }
}

// ---- Who needs whom ----

const std::vector<size_t> &inventory_snapshot::places_of_dependents(const std::string &name) {
    need_entries();
    if (!has_dependents_) {
        dependents_.clear();
        for (size_t place = 0; place < entries_.size(); place++) {
            const vri *info = entries_[place].info;
            for (char *const *dep = info ? info->deps : nullptr; dep && *dep; dep++) {
                std::vector<size_t> &places = dependents_[*dep];
                // A package that lists the same name twice is one dependent.
                if (places.empty() || places.back() != place) {
                    places.push_back(place);
                }
            }
        }
        has_dependents_ = true;
    }
    static const std::vector<size_t> nobody;
    const auto found = dependents_.find(name);
    return found == dependents_.end() ? nobody : found->second;
}

std::vector<const vri *> inventory_snapshot::dependents(const std::string &name) {
    std::vector<const vri *> found;
    for (const size_t place : places_of_dependents(name)) {
        found.push_back(entries_[place].info);
    }
    std::stable_sort(found.begin(), found.end(), is_ahead);
    return found;
}

// ---- Changes ----

bool inventory_snapshot::has_changed(const std::string &name, const known &entry) const {
    return !entry.is_settled || entry.seen != stamps_of(name);
}

// The directory also changes with the work directories of an update, which are not listed.
bool inventory_snapshot::is_list_changed() const {
    if (is_list_settled_ && list_seen_ == stamp_of(directory(), true)) {
        return false;
    }
    const listing now = read_names();
    return now.names != list_.names || now.errors != list_.errors;
}

void inventory_snapshot::drop_views() {
    has_entries_ = has_packages_ = has_dependents_ = false;
}

bool inventory_snapshot::refresh() {
    bool changed = false;
    if (has_list_ && is_list_changed()) {
        has_list_ = false;
        changed = true;
    }
    const size_t gone = std::erase_if(
        known_, [this](const auto &one) { return has_changed(one.first, one.second); });
    changed = changed || gone > 0;
    if (changed) {
        drop_views();
    }
    return changed;
}

bool inventory_snapshot::refresh(const std::string &name) {
    const auto place = known_.find(name);
    if (place == known_.end() || !has_changed(name, place->second)) {
        return false;
    }
    known_.erase(place);
    drop_views();
    return true;
}

void inventory_snapshot::forget(const std::string &name) {
    known_.erase(name);
    has_list_ = false;
    drop_views();
}

// ---- A planner's question ----

bool installed_view::has(const char *name) const {
    return snapshot_ ? snapshot_->find(name) != nullptr
                     : own_vri(vrm_vrl_info(handle_, name)) != nullptr;
}

bool installed_view::has_own(const char *name) const {
    return snapshot_ ? snapshot_->find_own(name) != nullptr
                     : own_vri(vrm_vrl_own_info(handle_, name)) != nullptr;
}

static own_vri copy_of(const vri *info) {
    own_vri copy(vrk_info_copy(info));
    if (info && !copy) {
        throw std::bad_alloc();  // without a record it would pass for not installed
    }
    return copy;
}

own_vri installed_view::info(const char *name) const {
    return snapshot_ ? copy_of(snapshot_->find(name)) : own_vri(vrm_vrl_info(handle_, name));
}

own_vri installed_view::own_info(const char *name) const {
    return snapshot_ ? copy_of(snapshot_->find_own(name))
                     : own_vri(vrm_vrl_own_info(handle_, name));
}
