#include "transaction/dependents.h"

#include <dirent.h>

#include <cerrno>
#include <utility>

#include "repository/inventory.h"
#include "support/event.h"
#include "support/log.h"

// A search ends at the second dependent: nobody is told of more.
static constexpr size_t most_dependents = 2;

dependents_index::dependents_index(vrm_handle *handle) {
    const char *installed = ekva_getval(handle->dirs, "installed");
    dir_ = installed ? installed : "";
    own_dir dir(opendir(dir_.c_str()));
    if (!dir) {
        open_error_ = errno;
        return;
    }
    while (const dirent *found = readdir(dir.get())) {
        const bool is_directory = found->d_type == DT_DIR;
        if (is_directory && found->d_name[0] == '.') {
            continue;
        }
        entry added = {found->d_name, is_directory,
                       own_vri(is_directory ? vrm_vrl_info(handle, found->d_name) : nullptr)};
        for (char *const *dep = added.info ? added.info->deps : nullptr; dep && *dep; dep++) {
            std::vector<size_t> &places = dependents_[*dep];
            // A package that lists the same name twice is one dependent.
            if (places.size() < most_dependents &&
                (places.empty() || places.back() != entries_.size())) {
                places.push_back(entries_.size());
            }
        }
        entries_.push_back(std::move(added));
    }
    if (closedir(dir.release()) != 0) {
        close_error_ = errno;
    }
}

void dependents_index::log_scan(size_t end) const {
    if (!log_wants(LEVEL_DEBUG)) {
        return;
    }
    for (size_t i = 0; i < end; i++) {
        if (!entries_[i].is_directory) {
            log_say(LEVEL_DEBUG, "Omitting non-directory %s", entries_[i].name.c_str());
        } else if (!entries_[i].info) {
            log_say(LEVEL_DEBUG, "Failure parsing info for %s, skipping entry",
                    entries_[i].name.c_str());
        }
    }
}

void dependents_index::log_unreadable() const {
    if (open_error_ != 0) {
        report({.kind = event_kind::inventory_not_opened, .path = dir_, .error = open_error_});
    } else if (close_error_ != 0) {
        report({.kind = event_kind::dependents_not_closed, .path = dir_});
    }
}

std::vector<const vri *> dependents_index::of(const char *name) const {
    std::vector<const vri *> found;
    size_t end = entries_.size();
    const auto places = dependents_.find(name);
    if (places != dependents_.end()) {
        for (size_t place : places->second) {
            found.push_back(entries_[place].info.get());
        }
        if (found.size() == most_dependents) {
            end = places->second.back();
        }
    }
    log_scan(end);
    log_unreadable();
    return found;
}

dependson_index::dependson_index(vri *const *packages) {
    for (; packages && *packages; packages++) {
        for (char *const *dep = (*packages)->deps; dep && *dep; dep++) {
            std::vector<const vri *> &found = dependents_[*dep];
            if (found.empty() || found.back() != *packages) {
                found.push_back(*packages);
            }
        }
    }
}

const std::vector<const vri *> &dependson_index::of(const std::string &name) const {
    static const std::vector<const vri *> nobody;
    const auto found = dependents_.find(name);
    return found == dependents_.end() ? nobody : found->second;
}
