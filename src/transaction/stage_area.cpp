#include "transaction/stage_area.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "package/fileops.h"
#include "package/safe_name.h"
#include "package/tree_walk.h"
#include "support/ekva.h"
#include "support/event.h"
#include "support/file.h"
#include "support/own.h"
#include "transaction/change.h"

// ---- Its places ----

std::string dir_of(const vrm_handle *handle, const char *role) {
    const char *dir = ekva_getval(handle->dirs, role);
    return dir ? dir : "";
}

static constexpr size_t stage_path_limit = 1024;

bool stage_paths_of(const char *who, vrm_handle *handle, const vri *package, stage_paths *paths) {
    paths->puname = vrk_puname(package);
    paths->base = dir_of(handle, "stagearea") + "/" + paths->puname;
    paths->file = paths->base + ".vrk";
    paths->fresh = paths->base + "/new";
    paths->old = paths->base + "/old";
    if (paths->file.size() >= stage_path_limit) {
        report({.kind = event_kind::stage_path_long,
                .who = who,
                .path = std::string_view(paths->file).substr(0, 900)});
        return false;
    }
    return true;
}

bool identity_is_safe(const char *who, const vri *package) {
    const char *part = vrk_info_unsafe_part(package);
    if (part) {
        report({.kind = event_kind::identity_refused,
                .who = who,
                .package = package->name ? package->name : "",
                .other = part});
    }
    return !part;
}

// ---- Whose it is ----

std::string fault_of_directory(const std::string &path) {
    struct stat status;
    if (lstat(path.c_str(), &status) != 0) {
        // A path that is too long is reported where it is formed.
        return errno == ENOENT || errno == ENAMETOOLONG ? "" : strerror(errno);
    }
    if (!S_ISDIR(status.st_mode)) {
        return S_ISLNK(status.st_mode) ? "it is a symbolic link" : "it is not a directory";
    }
    if (status.st_uid != geteuid()) {
        return "it belongs to user " + std::to_string(status.st_uid);
    }
    return (status.st_mode & (S_IWGRP | S_IWOTH)) != 0 ? "others may write to it" : "";
}

static bool is_own_directory(const char *who, event_kind refusal, const std::string &path) {
    const std::string why = fault_of_directory(path);
    if (!why.empty()) {
        report({.kind = refusal, .who = who, .path = path, .other = why});
    }
    return why.empty();
}

bool is_stage_area_trusted(const char *who, const vrm_handle *handle) {
    return is_own_directory(who, event_kind::stage_area_refused, dir_of(handle, "stagearea"));
}

int vrm_check_stage(vrm_handle *handle) {
    return is_stage_area_trusted("vrm_check_stage", handle) ? 0 : -1;
}

// Refused with the stage directory and not deleted with it: somebody put it there.
static bool is_not_a_link(const char *who, const std::string &path) {
    struct stat status;
    if (lstat(path.c_str(), &status) != 0 || !S_ISLNK(status.st_mode)) {
        return true;
    }
    report({.kind = event_kind::stage_directory_refused,
            .who = who,
            .path = path,
            .other = "it is a symbolic link"});
    return false;
}

bool is_stage_trusted(const char *who, const vrm_handle *handle, const stage_paths &stage) {
    return is_stage_area_trusted(who, handle) &&
           is_own_directory(who, event_kind::stage_directory_refused, stage.base) &&
           is_not_a_link(who, stage.fresh) && is_not_a_link(who, stage.old);
}

bool are_saved_files_trusted(const char *who, const std::string &base) {
    const auto is_own = [who](const std::string &path) {
        return is_own_directory(who, event_kind::stage_directory_refused, path);
    };
    const std::string keep = base + "/keep";
    if (!is_own(directory_of(base)) || !is_own(base) || !is_own(keep) || !is_own(base + "/old")) {
        return false;
    }
    struct stat status;
    if (lstat(keep.c_str(), &status) == 0 && (status.st_mode & 07777) != 0700) {
        report({.kind = event_kind::stage_directory_refused,
                .who = who,
                .path = keep,
                .other = "others may enter it"});
        return false;
    }
    return true;
}

bool make_stage_directory(const char *who, const vrm_handle *handle, const stage_paths &stage,
                          std::initializer_list<std::string> parts) {
    if (!is_stage_trusted(who, handle, stage)) {
        return false;
    }
    std::string base = stage.base;
    vrm_vrf_mkdir(base.data(), 0700);
    struct stat status;
    // An older version, or somebody by hand, made it with another mode.
    if (lstat(base.c_str(), &status) == 0 && (status.st_mode & 07777) != 0700 &&
        chmod(base.c_str(), 0700) != 0) {
        report({.kind = event_kind::stage_directory_refused,
                .who = who,
                .path = base,
                .error = errno});
        return false;
    }
    for (std::string part : parts) {
        vrm_vrf_mkdir(part.data(), 0755);
        if (!is_own_directory(who, event_kind::stage_directory_refused, part)) {
            return false;
        }
    }
    return true;
}

// ---- What an earlier attempt left ----

namespace {

// Looks for anything but directories.
class file_finder : public tree_visitor {
 public:
    bool leaf(int, const char *, const struct stat &, const std::string &) override {
        return false;
    }
    bool leave(int, const char *, const std::string &) override {
        return true;
    }
};

}  // namespace

// What can't be looked at is taken for a backup.
static bool holds_files(const std::string &directory) {
    file_finder finder;
    return !walk_tree(directory.c_str(), finder);
}

bool has_backups(const std::string &base) {
    return holds_files(base + "/old") || holds_files(base + "/keep");
}

// Warns of backups of other changes of the same package, such as an upgrade to another version that
// was killed. They do not bar this change, which has a stage directory of its own.
static void note_other_backups(const vrm_handle *handle, const vri *package,
                               const stage_paths &stage) {
    const std::string area = dir_of(handle, "stagearea");
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
    return attempt(me, [=] {
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
        if (has_backups(stage.base)) {
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
