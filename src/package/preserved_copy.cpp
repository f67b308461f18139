#include "package/preserved_copy.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>
#include <string_view>
#include <vector>

#include "support/event.h"
#include "support/file.h"

namespace {

bool copy_link(const char *source, const char *target) {
    std::array<char, PATH_MAX> text;
    const ssize_t length = readlink(source, text.data(), text.size() - 1);
    if (length < 0) {
        return false;
    }
    text.at(static_cast<size_t>(length)) = '\0';
    return symlink(text.data(), target) == 0;
}

// Whatever its kind, nobody else's to use until it has its owner and mode.
bool copy_content(const char *source, const char *target, const struct stat &status) {
    switch (status.st_mode & S_IFMT) {
        case S_IFREG: {
            const own_fd file(
                open(target, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
            return file.valid() && file_copy(target, source, 0) >= 0;
        }
        case S_IFLNK:
            return copy_link(source, target);
        case S_IFDIR:
            errno = EISDIR;
            return false;
        default:
            return mknod(target, (status.st_mode & S_IFMT) | 0600, status.st_rdev) == 0;
    }
}

// Calls `get` with a buffer and its size, and again with a larger one while it does not suffice.
// Result: as of `get`.
template <typename Get>
ssize_t read_growing(std::vector<char> *buffer, Get get) {
    for (buffer->resize(1024);; buffer->resize(buffer->size() * 2)) {
        const ssize_t length = get(buffer->data(), buffer->size());
        if (length >= 0 || errno != ERANGE) {
            return length;
        }
    }
}

bool copy_attribute(const char *source, const char *target, const char *name) {
    std::vector<char> value;
    const ssize_t length = read_growing(
        &value, [=](char *bytes, size_t size) { return lgetxattr(source, name, bytes, size); });
    if (length < 0) {
        return errno == ENODATA;  // removed meanwhile
    }
    if (lsetxattr(target, name, value.data(), static_cast<size_t>(length), 0) == 0) {
        return true;
    }
    if (errno != ENOTSUP) {
        return false;
    }
    report({.kind = event_kind::attribute_not_kept,
            .path = source,
            .other = target,
            .found = name,
            .error = errno});
    return true;
}

bool copy_attributes(const char *source, const char *target) {
    std::vector<char> names;
    const ssize_t length = read_growing(
        &names, [=](char *bytes, size_t size) { return llistxattr(source, bytes, size); });
    if (length < 0) {
        return errno == ENOTSUP;
    }
    for (std::string_view rest(names.data(), static_cast<size_t>(length)); !rest.empty();) {
        const std::string_view name = rest.substr(0, rest.find('\0'));
        if (!copy_attribute(source, target, std::string(name).c_str())) {
            return false;
        }
        rest.remove_prefix(std::min(name.size() + 1, rest.size()));
    }
    return true;
}

}  // namespace

bool copy_preserved(const char *source, const char *target) {
    struct stat status;
    if (lstat(source, &status) != 0) {
        return false;
    }
    const std::array<timespec, 2> times = {status.st_atim, status.st_mtim};
    return copy_content(source, target, status) &&
           lchown(target, status.st_uid, status.st_gid) == 0 && copy_attributes(source, target) &&
           (S_ISLNK(status.st_mode) || chmod(target, status.st_mode & 07777) == 0) &&
           utimensat(AT_FDCWD, target, times.data(), AT_SYMLINK_NOFOLLOW) == 0;
}
