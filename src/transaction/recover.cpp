#include "transaction/recover.h"

#include <dirent.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "repository/repository.h"
#include "support/boundary.h"
#include "support/event.h"
#include "support/file.h"
#include "support/own.h"
#include "transaction/register.h"
#include "transaction/stage_area.h"

static bool is_entry(const std::string &path) {
    return path_exists(path + "/desc.txt") && path_exists(path + "/inst.txt");
}

// Whether the entry has been replaced and the index has not. A version without data has no index to
// come, so the one that is there is the old one's.
static bool index_is_behind(const inventory_places &places) {
    const auto has_data = [](const std::string &entry) {
        return path_exists(entry + "/hash/data.txt");
    };
    return path_exists(places.new_index) ||
           (path_exists(places.entry + "/hash") && !has_data(places.entry) &&
            has_data(places.old_entry) && path_exists(places.index));
}

namespace {

// Where a swap ended: among the renames of the entry, or with those of the index still to come.
enum class cut { nowhere, in_entry, in_index };

}  // namespace

// What is there shows for each step whether it was reached. Every other update that died has its
// old entry in place, or has finished its swap.
static cut where_cut_off(const inventory_places &places) {
    if (!is_entry(places.old_entry)) {
        return cut::nowhere;
    }
    if (!path_exists(places.entry)) {
        // What was removed leaves no new entry either.
        return is_entry(places.new_entry) ? cut::in_entry : cut::nowhere;
    }
    return !path_exists(places.new_entry) && index_is_behind(places) ? cut::in_index : cut::nowhere;
}

// Takes a swap back that was cut off. False when there is nothing to take back, or it can't be.
static bool take_back(const inventory_places &places) {
    const cut at = where_cut_off(places);
    if (at == cut::nowhere ||
        (at == cut::in_index && rename(places.entry.c_str(), places.new_entry.c_str()) != 0) ||
        rename(places.old_entry.c_str(), places.entry.c_str()) != 0) {
        return false;
    }
    if (at == cut::in_index && !path_exists(places.index)) {
        rename(places.old_index.c_str(), places.index.c_str());
    }
    return true;
}

// The packages whose entry an update has set aside.
static std::vector<std::string> set_aside(const vrm_handle *handle) {
    static constexpr std::string_view ending = ".old";
    std::vector<std::string> names;
    const own_dir dir(opendir(dir_of(handle, "installed").c_str()));
    while (const dirent *found = dir ? readdir(dir.get()) : nullptr) {
        const std::string_view name = found->d_name;
        if (name.size() > 1 + ending.size() && name.starts_with('.') && name.ends_with(ending)) {
            names.emplace_back(name.substr(1, name.size() - 1 - ending.size()));
        }
    }
    return names;
}

static std::vector<std::string> cut_off(const vrm_handle *handle) {
    std::vector<std::string> names = set_aside(handle);
    std::erase_if(names, [handle](const std::string &name) {
        return where_cut_off(inventory_places_of(handle, name.c_str())) == cut::nowhere;
    });
    std::sort(names.begin(), names.end());
    return names;
}

char **vrm_broken_swaps(vrm_handle *handle) {
    return guarded(nullptr, [&]() -> char ** {
        std::vector<std::string> names = cut_off(handle);
        if (!names.empty() && !handle->locked) {
            // The swap of an update that runs looks the same. It may also have ended meanwhile.
            if (vrm_lock_holder(handle) > 0) {
                return nullptr;
            }
            names = cut_off(handle);
        }
        if (names.empty()) {
            return nullptr;
        }
        own_array list(static_cast<char **>(calloc(names.size() + 1, sizeof(char *))));
        for (size_t i = 0; list && i < names.size(); i++) {
            if (!(list.get()[i] = strdup(names[i].c_str()))) {
                return nullptr;
            }
        }
        return list.release();
    });
}

int vrm_undo_broken_swaps(vrm_handle *handle) {
    return guarded(-1, [&] {
        if (!handle->locked) {
            report({.kind = event_kind::not_locked, .who = "vrm_undo_broken_swaps"});
            return -1;
        }
        int count = 0;
        for (const std::string &name : set_aside(handle)) {
            if (take_back(inventory_places_of(handle, name.c_str()))) {
                report({.kind = event_kind::broken_swap_undone, .package = name});
                count++;
            }
        }
        return count;
    });
}
