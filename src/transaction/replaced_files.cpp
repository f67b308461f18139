#include "transaction/replaced_files.h"

#include <sys/stat.h>

#include <cerrno>
#include <string_view>
#include <unordered_set>

#include "repository/saved_files.h"
#include "support/event.h"

// Whether there is something that could be lost: only files and links are ever replaced. What can't
// be looked at is not passed over: it can't be kept.
static bool can_be_lost(const char *path) {
    struct stat status;
    if (lstat(path, &status) != 0) {
        return errno != ENOENT && errno != ENOTDIR;
    }
    return S_ISREG(status.st_mode) || S_ISLNK(status.st_mode);
}

static std::vector<std::string> unowned_files(char *const *written, char *const *old_files,
                                              const settled_links &links) {
    std::unordered_set<std::string_view> owned;
    for (; old_files && *old_files; old_files++) {
        owned.insert(*old_files);
    }
    std::vector<std::string> found;
    std::unordered_set<std::string_view> known;
    for (; written && *written; written++) {
        if (!owned.contains(*written) && can_be_lost(*written)) {
            found.emplace_back(*written);
            known.insert(*written);
        }
    }
    for (const std::string &place : links.unowned) {
        if (!known.contains(place)) {
            found.push_back(place);
        }
    }
    return found;
}

bool keep_replaced_files(const package_change &change, char *const *written, char *const *old_files,
                         const settled_links &links,
                         std::vector<std::pair<std::string, std::string>> *kept_files) {
    const std::vector<std::string> files = unowned_files(written, old_files, links);
    saved_change copies(change.handle, change.stage.puname);
    bool kept = true;
    for (auto file = files.begin(); kept && file != files.end(); ++file) {
        kept = copies.keep(*file);
    }
    if (!kept || !copies.sync()) {
        copies.discard();
        return false;
    }
    for (const std::string &file : files) {
        report(
            {.kind = event_kind::replaced_file_kept, .path = file, .other = copies.copy_of(file)});
        kept_files->emplace_back(file, copies.copy_of(file));
    }
    return true;
}
