#include "package/preserved_copy.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/event.h"
#include "support/file.h"

static constexpr std::string_view access_list = "system.posix_acl_access";

static bool set_owner(const struct stat &status, int to, const char *path) {
    if (fchown(to, status.st_uid, status.st_gid) == 0) {
        return true;
    }
    const int error = errno;
    // Most files are root's, as a new one is.
    struct stat made;
    if (fstat(to, &made) == 0 && made.st_uid == status.st_uid && made.st_gid == status.st_gid) {
        return true;
    }
    report({.kind = event_kind::owner_not_set, .path = path, .error = error});
    return false;
}

// What a call fills that gives the size needed when it is handed no room. The size can change
// between two calls. None, with errno, on a failure.
template <class Read>
static std::optional<std::string> read_sized(const Read &read) {
    for (;;) {
        const ssize_t size = read(nullptr, 0);
        if (size < 0) {
            return std::nullopt;
        }
        std::string text(static_cast<size_t>(size), '\0');
        const ssize_t got = size == 0 ? 0 : read(text.data(), text.size());
        if (got >= 0) {
            text.resize(static_cast<size_t>(got));
            return text;
        }
        if (errno != ERANGE) {
            return std::nullopt;
        }
    }
}

// The names of a file's extended attributes. A file system that has none gives none.
static std::optional<std::vector<std::string>> attributes_of(int file) {
    const auto list =
        read_sized([file](char *room, size_t size) { return flistxattr(file, room, size); });
    if (!list) {
        return errno == ENOTSUP ? std::optional(std::vector<std::string>()) : std::nullopt;
    }
    std::vector<std::string> names;
    for (size_t at = 0; at < list->size(); at += names.back().size() + 1) {
        names.emplace_back(list->c_str() + at);
    }
    return names;
}

static bool copy_attribute(int from, int to, const std::string &name, const char *path) {
    const auto value = read_sized([from, &name](char *room, size_t size) {
        return fgetxattr(from, name.c_str(), room, size);
    });
    if (!value && errno == ENODATA) {
        return true;  // removed meanwhile
    }
    if (!value || fsetxattr(to, name.c_str(), value->data(), value->size(), 0) != 0) {
        report(
            {.kind = event_kind::attribute_not_set, .path = path, .other = name, .error = errno});
        return false;
    }
    return true;
}

// Takes away the access control list that a file got from its directory when it was made.
static bool remove_access_list(int file, const char *path) {
    // Most files have none: then it does not matter why it can't be taken away.
    const auto is_gone = [] { return errno == ENODATA || errno == ENOTSUP; };
    if (fremovexattr(file, access_list.data()) == 0 || is_gone()) {
        return true;
    }
    const int error = errno;
    if (fgetxattr(file, access_list.data(), nullptr, 0) < 0 && is_gone()) {
        return true;
    }
    report({.kind = event_kind::attribute_not_set,
            .path = path,
            .other = std::string(access_list),
            .error = error});
    return false;
}

// Whether the access control list, or that there is none, was copied. What fails is logged.
static bool copy_extended(int from, int to, const char *path) {
    const auto names = attributes_of(from);
    if (!names) {
        report({.kind = event_kind::attributes_not_read, .path = path, .error = errno});
        return false;
    }
    bool has_list = false, is_list_copied = false;
    for (const std::string &name : *names) {
        const bool copied = copy_attribute(from, to, name, path);
        if (name == access_list) {
            has_list = true;
            is_list_copied = copied;
        }
    }
    return has_list ? is_list_copied : remove_access_list(to, path);
}

void copy_attributes(int from, const struct stat &status, int to, const char *path) {
    mode_t mode = status.st_mode & 07777;
    if (!set_owner(status, to, path)) {
        // Its group can be any, such as that of its directory.
        const mode_t lost = mode & (S_ISUID | S_ISGID | S_IRWXG);
        mode &= ~lost;
        if (lost != 0) {
            report({.kind = event_kind::set_id_bits_dropped, .path = path});
        }
    }
    if (!copy_extended(from, to, path)) {
        // A list also says what a user may not do that all others may.
        mode &= S_IRWXU;
    }
    if (fchmod(to, mode) != 0) {
        report({.kind = event_kind::mode_not_set, .path = path, .error = errno});
    }
    const timespec times[] = {status.st_atim, status.st_mtim};
    if (futimens(to, times) != 0) {
        report({.kind = event_kind::times_not_set, .path = path, .error = errno});
    }
}

static bool copy_file(const char *source, int directory, const char *target) {
    struct stat status;
    const own_fd from = open_regular(source, &status);
    if (!from.valid()) {
        return false;
    }
    // Nobody else's to read until it has its owner and mode.
    own_fd to(
        openat(directory, target, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    uint64_t copied = 0;
    if (!to.valid() || copy_open_file(from.get(), to.get(), &copied) != copy_end::complete) {
        return false;
    }
    copy_attributes(from.get(), status, to.get(), target);
    return to.close() == 0;
}

static bool copy_link(const char *source, int directory, const char *target) {
    std::array<char, PATH_MAX> text;
    const ssize_t length = readlink(source, text.data(), text.size() - 1);
    if (length < 0) {
        return false;
    }
    text.at(static_cast<size_t>(length)) = '\0';
    return symlinkat(text.data(), directory, target) == 0;
}

// Owner, mode and times, of what can't be opened for writing. What somebody put in its place
// meanwhile gets none of them: the directory can be a user's.
static bool set_status(int directory, const char *target, const struct stat &status) {
    const own_fd made(openat(directory, target, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat is;
    if (!made.valid() || fstat(made.get(), &is) != 0) {
        return false;
    }
    if ((is.st_mode & S_IFMT) != (status.st_mode & S_IFMT) || is.st_uid != geteuid() ||
        is.st_nlink != 1) {
        errno = ESTALE;
        return false;
    }
    // Such a descriptor allows no fchmod.
    const std::string path = "/proc/self/fd/" + std::to_string(made.get());
    const std::array<timespec, 2> times = {status.st_atim, status.st_mtim};
    return fchownat(made.get(), "", status.st_uid, status.st_gid, AT_EMPTY_PATH) == 0 &&
           (S_ISLNK(status.st_mode) || chmod(path.c_str(), status.st_mode & 07777) == 0) &&
           utimensat(directory, target, times.data(), AT_SYMLINK_NOFOLLOW) == 0;
}

bool copy_preserved(const char *source, const char *target, int directory) {
    struct stat status;
    if (lstat(source, &status) != 0) {
        return false;
    }
    switch (status.st_mode & S_IFMT) {
        case S_IFREG:
            return copy_file(source, directory, target);
        case S_IFLNK:
            return copy_link(source, directory, target) && set_status(directory, target, status);
        case S_IFDIR:
            errno = EISDIR;
            return false;
        default:
            return mknodat(directory, target, (status.st_mode & S_IFMT) | 0600, status.st_rdev) ==
                       0 &&
                   set_status(directory, target, status);
    }
}

// Fills a block as far as the file goes. Result: the bytes; -1 with errno.
static ssize_t read_whole_block(int file, std::string *block) {
    size_t size = 0;
    while (size < block->size()) {
        const ssize_t got = read_some(file, block->data() + size, block->size() - size);
        if (got < 0) {
            return -1;
        }
        if (got == 0) {
            break;
        }
        size += static_cast<size_t>(got);
    }
    return static_cast<ssize_t>(size);
}

static std::optional<std::string> target_of(const std::string &link) {
    std::array<char, PATH_MAX> text;
    const ssize_t length = readlink(link.c_str(), text.data(), text.size());
    return length < 0 ? std::nullopt
                      : std::optional(std::string(text.data(), static_cast<size_t>(length)));
}

static bool has_same_content(const std::string &path, const std::string &other) {
    const own_fd file = open_regular(path.c_str()), other_file = open_regular(other.c_str());
    if (!file.valid() || !other_file.valid()) {
        return false;
    }
    constexpr size_t at_once = size_t{64} * 1024;
    std::string block(at_once, '\0'), other_block(at_once, '\0');
    for (;;) {
        const ssize_t got = read_whole_block(file.get(), &block);
        if (got < 0 || read_whole_block(other_file.get(), &other_block) != got ||
            std::string_view(block).substr(0, static_cast<size_t>(got)) !=
                std::string_view(other_block).substr(0, static_cast<size_t>(got))) {
            return false;
        }
        if (static_cast<size_t>(got) < at_once) {
            return true;
        }
    }
}

bool is_what_was_saved(const std::string &path, const std::string &saved) {
    struct stat is, was;
    if (lstat(path.c_str(), &is) != 0 || lstat(saved.c_str(), &was) != 0) {
        return false;
    }
    if (is.st_dev == was.st_dev && is.st_ino == was.st_ino) {
        return true;
    }
    if (is.st_mode != was.st_mode || is.st_uid != was.st_uid || is.st_gid != was.st_gid ||
        is.st_size != was.st_size || is.st_mtim.tv_sec != was.st_mtim.tv_sec ||
        is.st_mtim.tv_nsec != was.st_mtim.tv_nsec) {
        return false;
    }
    if (S_ISLNK(is.st_mode)) {
        const auto target = target_of(path);
        return target && target == target_of(saved);
    }
    return S_ISREG(is.st_mode) && has_same_content(path, saved);
}

bool write_over(const char *target, const char *source, belongings what) {
    struct stat status, is;
    const own_fd from = open_regular(source, &status);
    if (!from.valid()) {
        return false;
    }
    own_fd to(open(target, O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    if (!to.valid() || fstat(to.get(), &is) != 0) {
        return false;
    }
    if (!S_ISREG(is.st_mode)) {
        errno = EINVAL;
        return false;
    }
    uint64_t copied = 0;
    // As one that is made, it is nobody else's to read until it has its mode. That fails where a
    // file system has no permissions.
    (void)!fchmod(to.get(), 0600);
    if (ftruncate(to.get(), 0) != 0 ||
        copy_open_file(from.get(), to.get(), &copied) != copy_end::complete) {
        return false;
    }
    if (what == belongings::all) {
        copy_attributes(from.get(), status, to.get(), target);
    } else if (fchmod(to.get(), status.st_mode & 07777) != 0) {
        report({.kind = event_kind::mode_not_set, .path = target, .error = errno});
    }
    return to.close() == 0;
}
