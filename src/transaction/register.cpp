#include "transaction/register.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <ctime>
#include <utility>

#include "package/copy_file.h"
#include "package/fileops.h"
#include "support/ekva.h"
#include "support/file.h"
#include "support/ldif.h"
#include "support/log.h"
#include "support/shell.h"
#include "transaction/change.h"
#include "transaction/journal.h"

// What could not be copied, in the words of the messages.
static constexpr char info_files[] = "info files";
static constexpr char data_hash_file[] = "data hash file";

static bool copy_all(const std::string &source, const std::string &target, char *const *paths,
                     int mode) {
    for (; paths && *paths; paths++) {
        if (vrm_vrf_copy((target + *paths).c_str(), (source + *paths).c_str(), nullptr, mode) < 0) {
            return false;
        }
    }
    return true;
}

// Copies what the inventory keeps of an unpacked package into `entry`, which is made with its
// `hash` directory. Result: what could not be copied, empty when all was.
static std::string register_forks(const std::string &stage, const std::string &entry,
                                  const package_forks &forks) {
    static constexpr int keep_mode = 1;
    static constexpr struct {
        const char *name;
        own_array package_forks::*files;
        int mode;  // 0: only the hash list is kept
    } kept_forks[] = {
        {"data", &package_forks::data, 0},
        {"init", &package_forks::init, 0755},
        {"conf", &package_forks::conf, keep_mode},
        {"dump", &package_forks::dump, keep_mode},
    };

    std::string dir = entry;
    vrm_vrf_mkdir(dir.data(), 0755);
    dir = entry + "/hash";
    vrm_vrf_mkdir(dir.data(), 0755);
    if (!copy_all(stage + "/info", entry, forks.info.get(), 0755)) {
        return info_files;
    }
    for (const auto &fork : kept_forks) {
        char *const *files = (forks.*fork.files).get();
        const std::string name = std::string("/") + fork.name, list = "/hash" + name + ".txt";
        if (files && fork.mode != 0) {
            dir = entry + name;
            vrm_vrf_mkdir(dir.data(), 0755);
            if (!copy_all(stage + name, dir, files, fork.mode)) {
                return std::string(fork.name) + " files";
            }
        }
        if (files &&
            vrm_vrf_copy((entry + list).c_str(), (stage + list).c_str(), nullptr, 0755) < 0) {
            return std::string(fork.name) + " hash file";
        }
    }
    return "";
}

// Writes the paths of a file index, one a line. False when not all of it reached the disk; a
// half-written file is removed.
static bool write_fileindex(const std::string &path, char *const *files) {
    FILE *out = fopen(path.c_str(), "we");
    if (!out) {
        return false;
    }
    bool good = true;
    for (; *files && good; files++) {
        good = fprintf(out, "%s\n", *files) > 0;
    }
    if (fclose(out) != 0 || !good) {
        unlink(path.c_str());
        return false;
    }
    return true;
}

bool write_install_record(own_file out, int64_t installed, char type, const char *head,
                          const std::vector<int64_t> &updates) {
    if (!out) {
        return false;
    }
    const auto write = [&out](const char *key, const std::string &value) {
        return ldif_fwrite(out.get(), key, value.c_str(), 0, 0) > 0;
    };
    bool good = write("evrkInstallTime", std::to_string(installed)) &&
                write("evrkInstallType", std::string(1, type));
    if (head) {
        good = good && write("evrkInstallHead", head);
    }
    for (const int64_t update : updates) {
        good = good && write("evrkUpdateTime", std::to_string(update));
    }
    good = good && !ferror(out.get());
    return fclose(out.release()) == 0 && good;
}

std::vector<int64_t> updates_until_now(const vri *package) {
    std::vector<int64_t> times;
    for (const int64_t *update = package->update_times; update && *update; update++) {
        times.push_back(*update);
    }
    times.push_back(static_cast<int64_t>(time(nullptr)));
    return times;
}

void refresh_linker_cache(const char *who) {
    if (have_so) {
        log_say(LEVEL_DEBUG, "%s: calling ldconfig", who);
        // Nothing depends on the outcome: a root without ldconfig is none of the package's faults.
        if (run_shell("/sbin/ldconfig 2>/dev/null") != 0) {
            log_say(LEVEL_DEBUG, "%s: ldconfig failed", who);
        }
        have_so = 0;
    }
}

// ---- The entry of a change ----

void drop_new_registration(const inventory_places &places) {
    vrm_vrf_rmdir(places.new_entry.c_str());
    unlink(places.new_index.c_str());
}

inventory_places inventory_places_of(const vrm_handle *handle, const char *package_name) {
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

static bool write_record(const change &change) {
    own_file record(fopen((change.places.new_entry + "/inst.txt").c_str(), "we"));
    if (const vri *before = change.old_package) {
        return write_install_record(std::move(record), before->install_time, before->install_type,
                                    before->install_head, updates_until_now(before));
    }
    const bool as_dependency = strcmp(change.new_package->name, change.head) != 0;
    return write_install_record(std::move(record), static_cast<int64_t>(time(nullptr)),
                                as_dependency ? 'D' : 'X', as_dependency ? change.head : nullptr,
                                {});
}

static void report_not_copied(const change &change, const std::string &what) {
    const auto &also = change.by->added.not_registered;
    const char *name = change.new_package->name;
    if (!also || what != info_files) {
        report({.kind = event_kind::registration_not_copied,
                .who = change.by->who,
                .package = name,
                .other = what});
    }
    if (also && (what == info_files || what == data_hash_file)) {
        report({.kind = *also, .package = name});
    }
}

static bool write_index(const change &change) {
    const inventory_places &places = change.places;
    if (!change.old_package) {
        log_say(LEVEL_DEBUG, "%s: Writing fileindex for <%s> to <%s>", change.by->who,
                change.new_package->name, places.index.c_str());
        // Nothing could take the place of a directory later on.
        struct stat status;
        const bool is_taken = lstat(places.index.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
        return !is_taken && write_fileindex(places.new_index, change.written.get());
    }
    log_say(LEVEL_DEBUG, "Cur fileindex name: <%s>", places.index.c_str());
    log_say(LEVEL_DEBUG, "Old fileindex name: <%s>", places.old_index.c_str());
    log_say(LEVEL_DEBUG, "New fileindex name: <%s>", places.new_index.c_str());
    return write_fileindex(places.new_index, change.written.get());
}

// What a change that died left of a new registration would add its files to the new one.
static void clear_the_way(const change &change) {
    if (change.is_update()) {
        log_say(LEVEL_DEBUG, "Registering %s ", change.new_package->name);
    } else {
        log_say(LEVEL_DEBUG, "registering %s for candidate %s", change.new_package->name,
                change.head);
    }
    drop_new_registration(change.places);
}

int build_registration(change *change) {
    const event_text who = change->by->who, name = change->new_package->name;
    clear_the_way(*change);
    const std::string failed =
        register_forks(change->stage.fresh, change->places.new_entry, change->forks);
    if (!failed.empty()) {
        report_not_copied(*change, failed);
        return -1;
    }
    if (!write_record(*change)) {
        report({.kind = event_kind::install_record_not_written, .who = who, .package = name});
        return -1;
    }
    if (change->written && !write_index(*change)) {
        report({.kind = event_kind::file_index_not_written, .who = who, .package = name});
        return -1;
    }
    return 0;
}

// Whether what was built has come to its places, which are the package's.
static bool is_entered(const inventory_places &places, bool is_update, bool has_data) {
    return path_exists(places.entry) && !path_exists(places.new_entry) &&
           (has_data ? !path_exists(places.new_index) : !is_update || !path_exists(places.index));
}

bool enter_built(const inventory_places &places, bool is_update, bool has_data) {
    if (path_exists(places.new_entry)) {
        if (!is_update) {
            // No listing takes what is there for a package.
            vrm_vrf_rmdir(places.entry.c_str());
        } else if (path_exists(places.entry)) {
            // What is set aside goes only once its place is taken.
            vrm_vrf_rmdir(places.old_entry.c_str());
            rename(places.entry.c_str(), places.old_entry.c_str());
        }
        if (rename(places.new_entry.c_str(), places.entry.c_str()) != 0) {
            return false;
        }
    }
    if (has_data && path_exists(places.new_index)) {
        rename(places.new_index.c_str(), places.index.c_str());
    } else if (!has_data && is_update) {
        unlink(places.index.c_str());
    }
    return is_entered(places, is_update, has_data);
}

// Enters the new version of a package and sets the old one aside. False with the first step that
// fails.
static bool swap_registration(const inventory_places &places, bool has_data) {
    vrm_vrf_rmdir(places.old_entry.c_str());
    if (rename(places.entry.c_str(), places.old_entry.c_str()) != 0 ||
        rename(places.new_entry.c_str(), places.entry.c_str()) != 0) {
        return false;
    }
    remove(places.old_index.c_str());
    rename(places.index.c_str(), places.old_index.c_str());
    return !has_data || rename(places.new_index.c_str(), places.index.c_str()) == 0;
}

int enter_registration(change *change) {
    const inventory_places &places = change->places;
    const bool is_update = change->is_update(), has_data = change->written != nullptr;
    // A step that failed is tried once more; what still does not work is left to a recovery, as the
    // change has happened.
    const bool entered =
        is_update ? swap_registration(places, has_data) : enter_built(places, is_update, has_data);
    if (!entered && !enter_built(places, is_update, has_data)) {
        report({.kind = event_kind::not_entered,
                .package = change->stage.puname,
                .path = places.entry,
                .error = errno});
        keep_journal();
    }
    return 0;
}

void drop_old_registration(const inventory_places &places) {
    vrm_vrf_rmdir(places.old_entry.c_str());
    remove(places.old_index.c_str());
}

// The entry goes at one stroke, under the name that retired entries have: what is left when its
// files can't all be deleted, or when the machine dies meanwhile, is not a damaged entry but
// something that a cleanup clears away. What a dead update left of a new registration goes ahead of
// it: without the entry that would be taken for the rest of a swap.
void drop_registration(const inventory_places &places) {
    drop_new_registration(places);
    unlink(places.index.c_str());
    vrm_vrf_rmdir(places.old_entry.c_str());
    const bool retired = rename(places.entry.c_str(), places.old_entry.c_str()) == 0;
    vrm_vrf_rmdir((retired ? places.old_entry : places.entry).c_str());
}
