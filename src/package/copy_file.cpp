#include "package/copy_file.h"

#include <fcntl.h>
#include <libgen.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <string>

#include "package/fileops.h"
#include "package/preserved_copy.h"
#include "support/boundary.h"
#include "support/event.h"
#include "support/file.h"
#include "support/log.h"

namespace {

std::string name_of(const char *path) {
    std::string copy(path);
    return basename(copy.data());
}

void make_directory(std::string path) {
    vrm_vrf_mkdir(path.data(), 0755);
}

bool fail_read_open(const char *path, const char *why) {
    report({.kind = event_kind::file_not_opened, .path = path, .other = why});
    return false;
}

bool fail_write(const char *path) {
    report({.kind = event_kind::file_not_written, .path = path, .error = errno});
    return false;
}

// Opens for writing, created with the permissions given.
own_fd open_output(const char *path, int flags, mode_t permissions) {
    own_fd file(open(path, O_WRONLY | O_CREAT | O_CLOEXEC | O_NOCTTY | flags, permissions));
    if (!file.valid()) {
        report({.kind = event_kind::file_not_created, .path = path, .error = errno});
    }
    return file;
}

// Copies to the end of the source. The number of bytes as results tell it, or nothing on a failure,
// which is logged.
std::optional<int32_t> copy_content(int from, const char *source, int to, const char *target) {
    uint64_t total = 0;
    switch (copy_open_file(from, to, &total)) {
        case copy_end::not_read:
            report({.kind = event_kind::file_not_copied, .path = source, .error = errno});
            return std::nullopt;
        case copy_end::not_written:
            fail_write(target);
            return std::nullopt;
        case copy_end::complete:
            break;
    }
    const int32_t bytes = told_bytes(total);
    log_debug("Wrote %d bytes to %s\n", bytes, target);
    return bytes;
}

// By the open file, so that a name that was exchanged meanwhile isn't hit.
void set_mode(const own_fd &file, const char *path, mode_t mode) {
    if (fchmod(file.get(), mode & 07777) != 0) {
        report({.kind = event_kind::mode_not_set, .path = path, .error = errno});
    }
}

// A file that is nobody else's to read, as its content can be a secret, until it gets the mode of
// the original. One that was there and could not be removed keeps its old mode otherwise, be it a
// set-id one. Where there is none any more, one that appears meanwhile is somebody's who could
// still write to it.
own_fd open_private(const char *path, bool is_there) {
    own_fd file = open_output(path, is_there ? O_TRUNC | O_NOFOLLOW : O_EXCL, 0600);
    struct stat status;
    if (file.valid() && (fstat(file.get(), &status) != 0 ||
                         ((status.st_mode & 07777) != 0600 && fchmod(file.get(), 0600) != 0))) {
        fail_write(path);
        return own_fd();
    }
    return file;
}

// Adds a path to the list of a backup base. False with the reason on the log.
bool note_backup(const char *backup_base, const char *path) {
    return guarded(false, [&] {
        const std::string index = std::string(backup_base) + "/index.txt";
        own_fd file = open_output(index.c_str(), O_APPEND, 0666);
        if (!file.valid()) {
            return false;
        }
        const std::string line = std::string(path) + '\n';
        if (!write_all(file.get(), line) || file.close() != 0) {
            return fail_write(index.c_str());
        }
        return true;
    });
}

bool back_up(const char *target, const char *backup_base) {
    const std::string directory = backup_base + directory_of(target);
    make_directory(directory);
    const std::string backup = directory + '/' + name_of(target);
    log_debug("Backing up %s to %s\n", target, backup.c_str());

    const char *why;
    struct stat status;
    const own_fd from = open_regular(target, &status, &why);
    if (!from.valid()) {
        return fail_read_open(target, why);
    }
    own_fd to = open_private(backup.c_str(), true);
    if (!to.valid() || !copy_content(from.get(), target, to.get(), backup.c_str())) {
        return false;
    }
    // Listed only when it is complete: a rollback trusts the list, and so does whoever puts backups
    // back after the machine died here.
    copy_attributes(from.get(), status, to.get(), backup.c_str());
    return to.close() == 0 ? note_backup(backup_base, target) : fail_write(backup.c_str());
}

// How much of the source the target becomes.
enum class extent {
    content,  // its mode too, when that is asked for
    whole,    // owner, attributes and times too; never through a link
};

// Takes an old target away, after it was saved if there is a backup base. `stays` says whether it
// could not be removed. False with the reason on the log.
bool clear_target(const char *target, const char *backup_base, extent how, bool *stays) {
    log_debug("vrm_vrf_copy: checking existence of %s", target);
    struct stat info;
    if (how == extent::whole && lstat(target, &info) == 0 && S_ISLNK(info.st_mode)) {
        unlink(target);
    }
    // Links are followed on purpose: a link to a regular file is treated as a regular file, its
    // content saved and the link removed, and a dangling one counts as missing, so that the copy
    // writes through it.
    if (stat(target, &info) != 0) {
        // Something that only can't be looked at would be overwritten without a backup.
        if (errno != ENOENT && errno != ENOTDIR) {
            report({.kind = event_kind::file_not_found, .path = target, .error = errno});
            return false;
        }
        log_debug("vrm_vrf_copy: %s does not exist, no backup necessary", target);
        return true;
    }
    log_debug("vrm_vrf_copy: %s exists", target);
    if (!S_ISREG(info.st_mode)) {
        report({.kind = event_kind::target_not_regular, .path = target});
        return false;
    }
    if (backup_base && !back_up(target, backup_base)) {
        return false;
    }
    // A file that can't go, such as a mount point, is written over.
    *stays = unlink(target) != 0;
    return true;
}

}  // namespace

// The number of bytes, or nothing on a failure, which is logged.
static std::optional<int32_t> copy_over(const char *target, const char *source,
                                        const char *backup_base, int mode, extent how) {
    if (backup_base) {
        log_debug("vrm_vrf_copy: backup base is %s, will backup target", backup_base);
    } else {
        log_debug("vrm_vrf_copy: backup base is NULL, will not backup target");
    }

    struct stat info;
    if (stat(source, &info) != 0) {
        report({.kind = event_kind::file_not_found, .path = source, .error = errno});
        return std::nullopt;
    }
    // Opened before the old target goes: a file copied onto itself keeps its content. Something
    // that never could be copied is refused while the target is still there.
    const char *why = nullptr;
    struct stat status;
    const own_fd from = open_regular(source, &status, &why);
    if (!S_ISREG(info.st_mode)) {
        fail_read_open(source, why);
        return std::nullopt;
    }
    bool stays = false;
    if (!clear_target(target, backup_base, how, &stays)) {
        return std::nullopt;
    }

    log_debug("Copying %s to %s\n", source, target);
    if (!from.valid()) {
        fail_read_open(source, why);
        return std::nullopt;
    }
    make_directory(directory_of(target));
    own_fd to = how == extent::whole ? open_private(target, stays)
                                     : open_output(target, O_TRUNC, mode > 0 ? 0600 : 0666);
    const std::optional<int32_t> bytes =
        to.valid() ? copy_content(from.get(), source, to.get(), target) : std::nullopt;
    if (!bytes) {
        return std::nullopt;
    }
    if (how == extent::whole) {
        copy_attributes(from.get(), status, to.get(), target);
    } else if (mode > 0) {
        set_mode(to, target, mode == 1 ? info.st_mode : static_cast<mode_t>(mode));
    }
    if (to.close() != 0) {
        fail_write(target);
        return std::nullopt;
    }
    return bytes;
}

int32_t vrm_vrf_copy(const char *target, const char *source, const char *backup_base, int mode) {
    return guarded(-1, [&] {
        return copy_over(target, source, backup_base, mode, extent::content).value_or(-1);
    });
}

bool save_backup(const char *backup_base, const char *path) {
    return guarded(false, [&] {
        const std::string backup = std::string(backup_base) + path;
        return copy_over(backup.c_str(), path, nullptr, 1, extent::whole) &&
               note_backup(backup_base, path);
    });
}

bool restore_backup(const char *path, const char *backup) {
    return guarded(false,
                   [&] { return copy_over(path, backup, nullptr, 1, extent::whole).has_value(); });
}
