#include "transaction/stage_directory.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "package/fileops.h"
#include "support/ekva.h"
#include "support/event.h"
#include "transaction/staging.h"

// Why a directory is not to be used, empty for one that may be or that doesn't exist.
static std::string fault_of_directory(const std::string &path) {
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
    const char *area = ekva_getval(handle->dirs, "stagearea");
    return is_own_directory(who, event_kind::stage_area_refused, area ? area : "");
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
