#include "transaction/stage_area.h"

#include <dirent.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>

#include "package/fileops.h"
#include "package/tree_walk.h"
#include "support/ekva.h"
#include "support/event.h"
#include "support/own.h"
#include "transaction/attempt.h"
#include "transaction/stage_directory.h"
#include "transaction/staging.h"

int vrm_check_stage(vrm_handle *handle) {
    return is_stage_area_trusted("vrm_check_stage", handle) ? 0 : -1;
}

namespace {

// Looks for anything but directories.
class file_finder : public TreeVisitor {
 public:
    int leaf(int, const char *, const struct stat &, const std::string &) override {
        return -1;
    }
    int leave(int, const char *, const std::string &) override {
        return 0;
    }
};

}  // namespace

// What can't be looked at is taken for a backup.
static bool holds_files(const std::string &directory) {
    file_finder finder;
    return walk_tree(directory.c_str(), finder) != 0;
}

// Warns of backups of other changes of the same package, such as an upgrade to another version that
// was killed. They do not bar this change, which has a stage directory of its own.
static void note_other_backups(const vrm_handle *handle, const vri *package,
                               const stage_paths &stage) {
    const std::string area = ekva_getval(handle->dirs, "stagearea");
    const std::string prefix = std::string(package->name) + "_";
    const own_dir dir(opendir(area.c_str()));
    while (const dirent *entry = dir ? readdir(dir.get()) : nullptr) {
        // What can't be a unique name of this package is not decoded, which would log an error.
        const std::string name(entry->d_name);
        if (!name.starts_with(prefix) || name == stage.puname) {
            continue;
        }
        struct stat status;
        const std::string base = std::string(area).append("/").append(name), old = base + "/old";
        if (lstat(old.c_str(), &status) != 0 || !own_ekva(vrk_puname_decode(name.c_str()))) {
            continue;
        }
        if (holds_files(old)) {
            report(
                {.kind = event_kind::other_backups_found, .package = package->name, .path = base});
        }
    }
}

int vrm_clear_stage(vrm_handle *handle, const vri *package) {
    static constexpr char me[] = "vrm_clear_stage";
    return attempt([=] {
        if (!handle->locked) {
            report({.kind = event_kind::not_locked, .who = me});
            return -1;
        }
        stage_paths stage;
        if (!identity_is_safe(me, package) || !stage_paths_of(me, handle, package, &stage) ||
            !is_stage_trusted(me, handle, stage)) {
            return -1;
        }
        note_other_backups(handle, package, stage);
        // A path that is too long is reported where it is formed.
        struct stat status;
        if (lstat(stage.base.c_str(), &status) != 0 && (errno == ENOENT || errno == ENAMETOOLONG)) {
            return 0;
        }
        if (holds_files(stage.old)) {
            report({.kind = event_kind::backups_in_the_way,
                    .package = stage.puname,
                    .path = stage.base});
            return -1;
        }
        if (vrm_vrf_rmdir(stage.base.c_str()) != 0) {
            report({.kind = event_kind::stage_not_cleared, .path = stage.base});
            return -1;
        }
        return 0;
    });
}
