#include "transaction/immutable.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstring>
#include <unordered_set>

#include "package/vrs.h"
#include "repository/inventory.h"
#include "support/event.h"
#include "support/file.h"
#include "transaction/change.h"

// False also where there is nothing, and on a file system without such attributes.
static bool is_immutable(const std::string &path) {
    struct statx found;
    constexpr uint64_t attributes = STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND;
    return statx(AT_FDCWD, path.c_str(), AT_NO_AUTOMOUNT, STATX_TYPE, &found) == 0 &&
           (found.stx_attributes & attributes) != 0;
}

static bool refused(const change &change, const std::string &path) {
    report({.kind = event_kind::path_immutable, .who = change.by->who, .path = path});
    return false;
}

bool are_directories_changeable(const change &change) {
    std::unordered_set<std::string> known;
    const auto is_good = [&](const std::string &path) {
        const std::string directory = directory_of(path);
        return !known.insert(directory).second || !is_immutable(directory) ||
               refused(change, directory);
    };
    for (char *const *list : {change.taken.get(), change.written.get()}) {
        for (char *const *path = list; path && *path; path++) {
            if (!is_good(*path)) {
                return false;
            }
        }
    }
    for (const std::string &path : change.touched.absent) {
        if (!is_good(path)) {
            return false;
        }
    }
    for (const kept_path &kept : change.touched.kept) {
        if (!change.new_package && S_ISREG(kept.mode) && !is_good(kept.path)) {
            return false;
        }
    }
    return true;
}

static bool holds(char *const *list, const std::string &path) {
    for (; list && *list; list++) {
        if (path == *list) {
            return true;
        }
    }
    return false;
}

// Of configuration that is there only what was not edited is replaced.
static bool is_replaced_conf(const change &change, const std::string &path) {
    const std::string shipped = change.places.entry + "/conf" + path;
    char on_disk[41], as_shipped[41];
    return change.is_update() && holds(change.forks.conf.get(), path) &&
           !is_missing(shipped.c_str()) && vrs_sha1_file(path.c_str(), 'x', on_disk) &&
           vrs_sha1_file(shipped.c_str(), 'x', as_shipped) && strcmp(on_disk, as_shipped) == 0;
}

static bool is_replaced_or_removed(const change &change, const std::string &path) {
    if (!change.new_package) {
        const own_array files(vrm_vrl_file_list(change.handle, change.old_package));
        return holds(files.get(), path);
    }
    return holds(change.taken.get(), path) || holds(change.written.get(), path) ||
           is_replaced_conf(change, path);
}

bool is_file_changeable(const change &change, const std::string &path) {
    return !is_immutable(path) || !is_replaced_or_removed(change, path) || refused(change, path);
}
