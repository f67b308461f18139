#include "package/preserved_copy.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "package/file_attributes.h"
#include "support/file.h"

static bool copy_file(const char *source, const char *target) {
    struct stat status;
    const own_fd from = open_regular(source, &status);
    if (!from.valid()) {
        return false;
    }
    // Nobody else's to read until it has its owner and mode.
    own_fd to(open(target, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!to.valid() || file_copy(target, source, 0) < 0) {
        return false;
    }
    copy_attributes(from.get(), status, to.get(), target);
    return to.close() == 0;
}

static bool copy_link(const char *source, const char *target) {
    std::array<char, PATH_MAX> text;
    const ssize_t length = readlink(source, text.data(), text.size() - 1);
    if (length < 0) {
        return false;
    }
    text.at(static_cast<size_t>(length)) = '\0';
    return symlink(text.data(), target) == 0;
}

// Owner, mode and times, of what can't be opened.
static bool set_status(const char *target, const struct stat &status) {
    const std::array<timespec, 2> times = {status.st_atim, status.st_mtim};
    return lchown(target, status.st_uid, status.st_gid) == 0 &&
           (S_ISLNK(status.st_mode) || chmod(target, status.st_mode & 07777) == 0) &&
           utimensat(AT_FDCWD, target, times.data(), AT_SYMLINK_NOFOLLOW) == 0;
}

bool copy_preserved(const char *source, const char *target) {
    struct stat status;
    if (lstat(source, &status) != 0) {
        return false;
    }
    switch (status.st_mode & S_IFMT) {
        case S_IFREG:
            return copy_file(source, target);
        case S_IFLNK:
            return copy_link(source, target) && set_status(target, status);
        case S_IFDIR:
            errno = EISDIR;
            return false;
        default:
            return mknod(target, (status.st_mode & S_IFMT) | 0600, status.st_rdev) == 0 &&
                   set_status(target, status);
    }
}
