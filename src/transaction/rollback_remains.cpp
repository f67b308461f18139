#include "transaction/rollback_remains.h"

#include <sys/stat.h>

static bool is_there(const std::string &path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0;
}

void note_absent_places(const package_change &change, const settled_links &links,
                        rollback_notes *notes) {
    for (char *const *path = change.forks.conf.get(); path && *path; path++) {
        if (!is_there(*path)) {
            notes->absent.emplace_back(*path);
        }
    }
    for (const std::string &place : links.places) {
        if (!is_there(place)) {
            notes->absent.push_back(place);
        }
    }
}

void report_remains(const package_change &change, const rollback_notes &notes) {
    for (const std::string &path : notes.absent) {
        if (is_there(path)) {
            report(
                {.kind = event_kind::new_file_stays, .package = change.stage.puname, .path = path});
        }
    }
    for (const auto &[path, copy] : notes.kept) {
        if (!is_there(path)) {
            report({.kind = event_kind::replaced_file_lost,
                    .package = change.stage.puname,
                    .path = path,
                    .other = copy});
        }
    }
}
