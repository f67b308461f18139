#include "transaction/place.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "package/fileops.h"
#include "package/vrs.h"
#include "support/event.h"
#include "support/file.h"
#include "support/log.h"
#include "transaction/change.h"

// ---- The old side ----

int make_backup_directory(change *change) {
    vrm_vrf_rmdir(change->stage.base.c_str());
    change->has_stage =
        make_stage_directory(change->by->who, change->handle, change->stage, {change->stage.old});
    return change->has_stage ? 0 : -1;
}

// Takes one file away, with a backup. False when it can't be saved; one that is gone already or
// can't be removed does not fail the change.
static bool take_away(const change &change, const char *path) {
    const auto &events = change.by->old_files;
    log_debug("%s: Found %s to delete", change.by->who, path);
    struct stat status;
    // A path that isn't absolute would mean another file from another working directory.
    errno = EINVAL;
    if (path[0] != '/' || stat(path, &status) != 0) {
        if (events.missing) {
            report({.kind = *events.missing, .path = path, .error = errno});
        }
        return true;
    }
    switch (change.backups->take(path)) {
        case backup_tree::taken::gone:
            break;
        case backup_tree::taken::not_saved:
            report({.kind = events.not_saved, .path = path});
            return false;
        case backup_tree::taken::not_removed:
            report({.kind = events.not_removed, .path = path, .error = errno});
            break;
    }
    return true;
}

// Takes away what the file index lists.
static bool take_registered_files_away(const change &change) {
    const char *who = change.by->who;
    const std::string &list = change.places.index;
    const own_file index(fopen_regular(list.c_str()));
    if (!index && errno == ENOENT) {
        log_debug("%s: no fileindex. This is ok", who);
        return true;
    }
    char line[4096];
    while (index && fgets(line, sizeof line, index.get())) {
        line[strcspn(line, "\n")] = '\0';
        if (line[0] != '\0' && !take_away(change, line)) {
            return false;
        }
    }
    // An index that is there and can't be read to its end would leave files without an owner.
    if (!index || ferror(index.get())) {
        report({.kind = event_kind::file_not_read, .path = list, .error = errno});
        return false;
    }
    log_debug("%s: processed fileindex %s\n", who, list.c_str());
    return true;
}

int take_files_away(change *change) {
    if (!change->new_package) {
        return take_registered_files_away(*change) ? 0 : -1;
    }
    for (char **path = change->taken.get(); path && *path; path++) {
        if (!take_away(*change, *path)) {
            return -1;
        }
    }
    return take_changed_kinds_away(*change);
}

int take_links_away(change *change) {
    const char *who = change->by->who;
    const std::string list = change->places.entry + "/link.txt";
    log_debug("%s: looking for link script %s\n", who, list.c_str());
    if (is_missing(list.c_str())) {
        log_debug("%s: no link script found", who);
        return 0;
    }
    const int rc = remove_links(list, change->shared_links);
    log_debug("%s: rc of vrm_vrf_links: %d", who, rc);
    return 0;
}

// ---- The new side ----

// Copies one file of the unpacked package to its place, with a backup of what it replaces. `failed`
// is the kind of event that reports a failure.
static bool place_file(const change &change, const char *fork, const char *path,
                       backup_tree::source_use use, event_kind failed) {
    static constexpr char live_root[] = "";  // comes before every target
    const char *who = change.by->who;
    const std::string target = std::string(live_root) + path;
    const std::string source = change.stage.fresh + "/" + fork + path;
    const bool is_logged = log_wants(LEVEL_DEBUG);
    if (is_logged) {
        log_debug("%s: copying %s to %s with backup of %s", who, source.c_str(), target.c_str(),
                  target.c_str());
    }
    const int32_t bytes = change.backups->put(target, source, use);
    if (bytes < 0) {
        report({.kind = failed, .who = who, .path = path, .other = source});
        return false;
    }
    if (is_logged) {
        log_debug("%s: Copied %d bytes from %s to %s", who, bytes, source.c_str(), target.c_str());
    }
    return true;
}

// A last script may look for the files in the stage directory.
bool data_may_move(const change &change) {
    return !fork_has(change.forks.init, (std::string("/") + change.by->last.file).c_str());
}

static bool place_data(const change &change) {
    using source_use = backup_tree::source_use;
    const bool may_move = data_may_move(change);
    int number = 0;
    for (char **path = change.written.get(); path && *path; path++, number++) {
        if (change.by->added.numbers_data && log_wants(LEVEL_DEBUG)) {
            log_debug("%s: Processing add_files[%d]", change.by->who, number);
        }
        const auto use = !may_move ? source_use::stays
                         : change.unpacked.contains(std::string("data") + *path)
                             ? source_use::moves_fresh
                             : source_use::moves;
        if (!place_file(change, "data", *path, use, change.by->added.data_not_placed)) {
            return false;
        }
    }
    return true;
}

// Whether a configuration file on the disk is known to be as the installed version shipped it. What
// can't be read is not known.
static bool is_as_shipped(const change &change, const char *path) {
    log_debug("%s: config file %s already exists", change.by->who, path);
    const std::string shipped = change.places.entry + "/conf" + path;
    if (is_missing(shipped.c_str())) {
        log_debug("%s: keeping existing config", change.by->who);
        return false;
    }
    log_debug("%s: %s was shipped the last time", change.by->who, path);
    char on_disk[41], as_shipped[41];
    const bool same = vrs_sha1_file(path, 'x', on_disk) &&
                      vrs_sha1_file(shipped.c_str(), 'x', as_shipped) &&
                      strcmp(on_disk, as_shipped) == 0;
    if (change.verbose) {
        report({.kind = same ? event_kind::conf_replaced : event_kind::conf_kept_modified,
                .path = path});
    }
    return same;
}

// Configuration belongs to the administrator once it is on the disk: only an update replaces a file
// there, one that was left as it came.
static bool may_replace_conf(const change &change, const char *path) {
    if (change.old_package) {
        return is_as_shipped(change, path);
    }
    if (change.verbose) {
        report({.kind = event_kind::conf_kept_existing, .path = path});
    }
    return false;
}

// None of these files is ever listed in the file index.
static bool place_conf(const change &change) {
    for (char **path = change.forks.conf.get(); path && *path; path++) {
        const bool present = !is_missing(*path);
        if (present && !may_replace_conf(change, *path)) {
            continue;
        }
        if (!present && change.verbose) {
            report({.kind = change.by->added.conf_placed, .path = *path});
        }
        if (!place_file(change, "conf", *path, backup_tree::source_use::stays,
                        event_kind::file_not_installed)) {
            return false;
        }
    }
    return true;
}

// Applies the link list and the permission list, in the order of the info files. Only the links
// that were settled replace something (link_conflicts.h).
static void apply_links_and_perms(const change &change) {
    const char *who = change.by->who;
    for (char **path = change.forks.info.get(); path && *path; path++) {
        const std::string list = change.stage.fresh + "/info" + *path;
        if (strcmp(*path, "/link.txt") == 0) {
            const int rc = make_links(list, change.links);
            log_debug("%s: rc of vrm_vrf_links: %d", who, rc);
        } else if (strcmp(*path, "/perm.txt") == 0) {
            const int rc = vrm_vrf_perms(list.c_str());
            log_debug("%s: rc of vrm_vrf_perms: %d", who, rc);
        }
    }
}

int place_files(change *change) {
    if (!place_data(*change) || !place_conf(*change)) {
        return -1;
    }
    apply_links_and_perms(*change);
    return 0;
}
