#include "transaction/swap.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <new>
#include <string_view>
#include <vector>

#include "package/fileops.h"
#include "support/log.h"
#include "support/own.h"
#include "transaction/update.h"

static std::string dir_of(const vrm_handle *handle, const char *role) {
    const char *dir = ekva_getval(handle->dirs, role);
    return dir ? dir : "";
}

inventory_places places_of(const vrm_handle *handle, const char *package_name) {
    const std::string installed = dir_of(handle, "installed").substr(0, 1000);
    const std::string index = dir_of(handle, "fileindex");
    const std::string name = std::string(package_name).substr(0, 1000);
    return {installed + "/" + name,
            installed + "/." + name + ".new",
            installed + "/." + name + ".old",
            index + "/" + package_name,
            index + "/." + package_name + ".new",
            index + "/." + package_name + ".old"};
}

void drop_new_registration(const inventory_places &places) {
    vrm_vrf_rmdir(places.new_entry.c_str());
    unlink(places.new_index.c_str());
}

void swap_in(const inventory_places &places, bool with_index) {
    vrm_vrf_rmdir(places.old_entry.c_str());
    rename(places.entry.c_str(), places.old_entry.c_str());
    rename(places.new_entry.c_str(), places.entry.c_str());
    remove(places.old_index.c_str());
    rename(places.index.c_str(), places.old_index.c_str());
    if (with_index) {
        rename(places.new_index.c_str(), places.index.c_str());
    }
}

void drop_old_registration(const inventory_places &places) {
    vrm_vrf_rmdir(places.old_entry.c_str());
    remove(places.old_index.c_str());
}

// ---- A swap that was cut off ----

static bool exists(const std::string &path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0;
}

static bool is_entry(const std::string &path) {
    return exists(path + "/desc.txt") && exists(path + "/inst.txt");
}

// Whether the entry has been replaced and the index has not. A version without data has no index to
// come, so the one that is there is the old one's.
static bool index_is_behind(const inventory_places &places) {
    const auto has_data = [](const std::string &entry) { return exists(entry + "/hash/data.txt"); };
    return exists(places.new_index) || (exists(places.entry + "/hash") && !has_data(places.entry) &&
                                        has_data(places.old_entry) && exists(places.index));
}

// Takes a swap back that ended between its renames: each step tells by what is there whether it was
// reached. False when there is nothing to take back. Every other update that died has its old entry
// in place, or has finished its swap.
static bool take_back(const inventory_places &places) {
    if (!is_entry(places.old_entry)) {
        return false;
    }
    if (!exists(places.entry)) {
        // What was removed leaves no new entry either.
        return is_entry(places.new_entry) &&
               rename(places.old_entry.c_str(), places.entry.c_str()) == 0;
    }
    if (exists(places.new_entry) || !index_is_behind(places)) {
        return false;
    }
    if (rename(places.entry.c_str(), places.new_entry.c_str()) != 0 ||
        rename(places.old_entry.c_str(), places.entry.c_str()) != 0) {
        return false;
    }
    if (!exists(places.index)) {
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

int vrm_undo_broken_swaps(vrm_handle *handle) try {
    if (!handle->locked) {
        log_say(LEVEL_ERROR, "vrm_undo_broken_swaps: no lock on local repository");
        return -1;
    }
    int count = 0;
    for (const std::string &name : set_aside(handle)) {
        if (take_back(places_of(handle, name.c_str()))) {
            log_say(LEVEL_WARNING,
                    "vrm_undo_broken_swaps: the update of %s was cut off while it was entered, its "
                    "old entry is back",
                    name.c_str());
            count++;
        }
    }
    return count;
} catch (const std::bad_alloc &) {
    return -1;
}
