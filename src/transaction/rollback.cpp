#include "transaction/rollback.h"

#include <limits.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "package/copy_file.h"
#include "support/event.h"
#include "support/file.h"
#include "support/log.h"
#include "support/own.h"
#include "transaction/change.h"
#include "transaction/journal.h"

// Copies one saved file back to its place.
static bool restore(const char *path, const char *old) {
    char backup[2001];
    snprintf(backup, sizeof backup, "%.1000s%.1000s", old, path);
    log_debug("vrm_install_rollback: Found %s to restore", path);
    log_debug("vrm_install_rollback: Copying %s to %s", backup, path);
    if (!restore_backup(path, backup)) {
        report({.kind = event_kind::not_restored, .path = path});
        return false;
    }
    return true;
}

int vrm_install_rollback(char *const *written, const char *old) {
    char path_of_index[PATH_MAX];
    snprintf(path_of_index, sizeof path_of_index, "%s/index.txt", old);
    for (char *const *path = written; path && *path; path++) {
        log_debug("vrm_install_rollback: removing %s", *path);
        unlink(*path);
    }
    const own_file index(fopen_regular(path_of_index));
    if (!index && errno == ENOENT) {
        report({.kind = event_kind::nothing_to_restore});
        return 0;
    }
    int rc = 0;
    char line[4096];
    while (index && fgets(line, sizeof line, index.get())) {
        line[strcspn(line, "\n")] = '\0';
        if (line[0] != '\0' && !restore(line, old)) {
            rc = -1;
        }
    }
    if (!index || ferror(index.get())) {
        report({.kind = event_kind::backup_list_not_read, .path = path_of_index});
        rc = -1;
    }
    report({.kind = event_kind::rollback_finished});
    return rc;
}

// ---- What stays ----

void note_absent_places(change *change) {
    for (char *const *path = change->forks.conf.get(); path && *path; path++) {
        if (!path_exists(*path)) {
            change->notes.absent.emplace_back(*path);
        }
    }
    for (const std::string &place : change->links.places) {
        if (!path_exists(place)) {
            change->notes.absent.push_back(place);
        }
    }
}

// What is found through a link that was to go, and did not, is not the package's to remove.
static std::vector<char *> paths_to_remove(const change &change) {
    std::vector<char *> paths;
    for (char *const *path = change.written.get(); path && *path; path++) {
        if (!leads_through_link(change.kinds.links, *path)) {
            paths.push_back(*path);
        }
    }
    paths.push_back(nullptr);
    return paths;
}

bool roll_back(const change &change) {
    const std::vector<char *> written = paths_to_remove(change);
    // Ahead of the files in them.
    restore_directories(change.touched);
    const bool is_restored = vrm_install_rollback(written.data(), change.stage.old.c_str()) == 0;
    const bool is_whole = repair(change);
    if (is_whole && !is_restored) {
        report({.kind = event_kind::old_version_in_place, .package = change.stage.puname});
    }
    const event_text package = change.stage.puname;
    for (const std::string &path : change.notes.absent) {
        if (path_exists(path)) {
            report({.kind = event_kind::new_file_stays, .package = package, .path = path});
        }
    }
    for (const auto &[path, copy] : change.notes.kept) {
        if (!path_exists(path)) {
            report({.kind = event_kind::replaced_file_lost,
                    .package = package,
                    .path = path,
                    .other = copy});
        }
    }
    return is_whole;
}
