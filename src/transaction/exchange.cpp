#include "transaction/exchange.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>

#include "package/copy_file.h"
#include "package/fileops.h"
#include "package/preserved_copy.h"
#include "support/event.h"
#include "support/file.h"
#include "support/log.h"
#include "transaction/touched.h"

static void make_directory(std::string path) {
    vrm_vrf_mkdir(path.data(), 0755);
}

// ---- Backups ----

bool backup_tree::make_directory_of(const std::string &copy) {
    const std::string directory = directory_of(copy);
    if (directory == made_) {
        return false;
    }
    make_directory(directory);
    made_ = directory;
    return true;
}

bool backup_tree::note(const std::string &path) {
    const std::string index = base_ + "/index.txt", line = path + "\n";
    if (!list_.valid()) {
        list_ =
            own_fd(open(index.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY, 0666));
        if (!list_.valid()) {
            report({.kind = event_kind::file_not_created, .path = index, .error = errno});
            return false;
        }
    }
    if (!write_all(list_.get(), line)) {
        report({.kind = event_kind::file_not_written, .path = index, .error = errno});
        return false;
    }
    return true;
}

// The file itself under a second name: all that belongs to it is there. A copy where that is
// refused.
bool backup_tree::save(const std::string &path) {
    const std::string copy = base_ + path;
    const auto link_it = [&] {
        return linkat(AT_FDCWD, path.c_str(), AT_FDCWD, copy.c_str(), AT_SYMLINK_FOLLOW) == 0;
    };
    const bool linked = link_it() || (errno == ENOENT && make_directory_of(copy) && link_it()) ||
                        (errno == EEXIST && unlink(copy.c_str()) == 0 && link_it());
    return linked ? note(path) : save_backup(base_.c_str(), path.c_str());
}

// ---- Putting ----

// Whether a file that is moved to a directory is what one that is made there would be.
bool backup_tree::can_move_to(const std::string &directory) {
    const auto [found, is_new] = can_move_.try_emplace(directory, false);
    if (is_new) {
        struct stat status;
        found->second = stat(directory.c_str(), &status) == 0 && (status.st_mode & S_ISGID) == 0 &&
                        getxattr(directory.c_str(), "system.posix_acl_default", nullptr, 0) < 0;
        if (!found->second && errno == ENOENT) {
            can_move_.erase(found);
            return false;
        }
        return found->second;
    }
    return found->second;
}

bool backup_tree::move(const std::string &target, const std::string &source,
                       const struct stat &status, bool is_fresh) {
    if (!S_ISREG(status.st_mode) || status.st_nlink != 1 || !can_move_to(directory_of(target))) {
        return false;
    }
    const bool is_own = status.st_uid == geteuid() && status.st_gid == getegid();
    if (!is_own && (chown(source.c_str(), geteuid(), getegid()) != 0 ||
                    chmod(source.c_str(), status.st_mode & 07777) != 0)) {
        return false;
    }
    return (is_fresh || utimensat(AT_FDCWD, source.c_str(), nullptr, AT_SYMLINK_NOFOLLOW) == 0) &&
           rename(source.c_str(), target.c_str()) == 0;
}

// By descriptors from its making to its last name: the directory can be a user's, who could put a
// link in the place of the file meanwhile. False with errno.
bool backup_tree::write_beside(const std::string &target, const std::string &source) {
    struct stat status;
    const own_fd from = open_regular(source.c_str(), &status);
    const own_fd directory(open(directory_of(target).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!from.valid() || !directory.valid()) {
        return false;
    }
    const char *const beside = temporary_.c_str();
    unlinkat(directory.get(), beside, 0);
    own_fd to(openat(directory.get(), beside, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                     0600));
    if (!to.valid()) {
        return false;
    }
    uint64_t copied = 0;
    bool is_whole = copy_open_file(from.get(), to.get(), &copied) == copy_end::complete;
    if (is_whole) {
        // Fails where a file system has no permissions.
        (void)!fchmod(to.get(), status.st_mode & 07777);
        is_whole = to.close() == 0;
    }
    if (is_whole && renameat(directory.get(), beside, directory.get(),
                             target.c_str() + target.rfind('/') + 1) == 0) {
        return true;
    }
    const int reason = errno;
    unlinkat(directory.get(), beside, 0);
    errno = reason;
    return false;
}

// As lstat and stat do it, with one call for what is not a link.
static bool look_at(const std::string &path, struct stat *status, struct stat *followed) {
    if (lstat(path.c_str(), status) != 0) {
        return false;
    }
    *followed = *status;
    return !S_ISLNK(status->st_mode) || stat(path.c_str(), followed) == 0;
}

int32_t backup_tree::put(const std::string &target, const std::string &source, source_use use) {
    log_debug("vrm_vrf_copy: backup base is %s, will backup target", base_.c_str());
    struct stat status, followed;
    if (!look_at(source, &status, &followed)) {
        report({.kind = event_kind::file_not_found, .path = source, .error = errno});
        return -1;
    }
    log_debug("vrm_vrf_copy: checking existence of %s", target.c_str());
    struct stat itself = {}, old;
    if (!look_at(target, &itself, &old)) {
        // Something that only can't be looked at would be replaced without a backup.
        if (errno != ENOENT && errno != ENOTDIR) {
            report({.kind = event_kind::file_not_found, .path = target, .error = errno});
            return -1;
        }
        log_debug("vrm_vrf_copy: %s does not exist, no backup necessary", target.c_str());
    } else {
        log_debug("vrm_vrf_copy: %s exists", target.c_str());
        if (!S_ISREG(old.st_mode)) {
            report({.kind = event_kind::target_not_regular, .path = target});
            return -1;
        }
        log_debug("Backing up %s to %s%s\n", target.c_str(), base_.c_str(), target.c_str());
        if (!save(target)) {
            return -1;
        }
    }

    log_debug("Copying %s to %s\n", source.c_str(), target.c_str());
    const std::string place = S_ISLNK(itself.st_mode) ? written_place(target) : target;
    const int32_t bytes = told_bytes(static_cast<uint64_t>(followed.st_size));
    const auto arrives = [&] {
        return (use != source_use::stays &&
                move(place, source, status, use == source_use::moves_fresh)) ||
               write_beside(place, source);
    };
    if (arrives()) {
        return bytes;
    }
    if (errno == ENOENT) {
        make_directory(directory_of(target));
        if (arrives()) {
            return bytes;
        }
    }
    // What can't be replaced, such as a mount point, is written over.
    if (errno == EBUSY && write_over(place.c_str(), source.c_str(), belongings::mode)) {
        return bytes;
    }
    report({.kind = event_kind::file_not_created, .path = target, .error = errno});
    return -1;
}

// ---- Taking ----

backup_tree::taken backup_tree::take(const std::string &path) {
    struct stat status;
    const std::string copy = base_ + path;
    const bool is_file = lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
    const auto move_it = [&] { return rename(path.c_str(), copy.c_str()) == 0; };
    if (is_file && (move_it() || (errno == ENOENT && make_directory_of(copy) && move_it()))) {
        // A move to another name of the same file does nothing.
        if (lstat(path.c_str(), &status) != 0 || unlink(path.c_str()) == 0) {
            return note(path) ? taken::gone : taken::not_saved;
        }
    }
    if (!save(path)) {
        return taken::not_saved;
    }
    return unlink(path.c_str()) == 0 ? taken::gone : taken::not_removed;
}
