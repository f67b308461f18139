#include "package/tree_walk.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>
#include <vector>

#include "support/event.h"
#include "support/own.h"

namespace {

// Directories held open at the same time.
constexpr size_t open_levels = 64;

struct tree_level {
    own_dir stream;  // empty while the level is parked
    dev_t device;
    ino_t inode;
    std::vector<std::string> names;  // entries not yet visited, the next one last
    size_t name_at;                  // where the directory's own name begins in the path
    size_t path_before;              // length of the path without it
    bool whole;                      // false once an entry has failed
};

class tree_walk {
 public:
    tree_walk(const char *path, tree_visitor &visitor) : visitor_(visitor), path_(path) {}

    bool run() {
        visit(AT_FDCWD, 0, 0);
        while (!levels_.empty()) {
            if (!levels_.back().names.empty()) {
                visit_next_entry();
            } else if (!leave_level()) {
                return false;
            }
        }
        return whole_;
    }

 private:
    int parent_fd() const {
        return levels_.empty() ? AT_FDCWD : dirfd(levels_.back().stream.get());
    }

    void remember(bool good) {
        if (!good) {
            (levels_.empty() ? whole_ : levels_.back().whole) = false;
        }
    }

    void visit_next_entry() {
        const size_t before = path_.size();
        if (path_.back() != '/') {
            path_ += '/';
        }
        const size_t name_at = path_.size();
        path_ += levels_.back().names.back();
        levels_.back().names.pop_back();
        visit(parent_fd(), name_at, before);
    }

    // Visits what the path names now. A directory becomes the innermost level, and the path stays.
    void visit(int parent, size_t name_at, size_t path_before) {
        const char *name = path_.c_str() + name_at;
        struct stat info;
        if (fstatat(parent, name, &info, AT_SYMLINK_NOFOLLOW) != 0) {
            if (errno != ENOENT) {
                report({.kind = event_kind::path_not_found, .path = path_});
                remember(false);
            }
        } else if (!S_ISDIR(info.st_mode)) {
            remember(visitor_.leaf(parent, name, info, path_));
        } else if (enter(parent, name_at, path_before)) {
            return;
        } else {
            remember(false);
        }
        path_.resize(path_before);
    }

    bool enter(int parent, size_t name_at, size_t path_before) {
        const int fd = openat(parent, path_.c_str() + name_at,
                              O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
        struct stat info;
        if (fd < 0) {
            return false;
        }
        own_dir stream(fdopendir(fd));
        if (!stream) {
            close(fd);
            return false;
        }
        if (fstat(fd, &info) != 0) {
            return false;
        }
        tree_level level{std::move(stream), info.st_dev, info.st_ino, {},
                         name_at,           path_before, true};
        read_names(level);
        levels_.push_back(std::move(level));
        park_outer_level();
        return true;
    }

    static void read_names(tree_level &level) {
        while (const dirent *entry = next_entry(level.stream)) {
            if (!is_self_or_parent(entry)) {
                level.names.emplace_back(entry->d_name);
            }
        }
        if (errno != 0) {
            level.whole = false;
        }
    }

    // Beyond so many open levels the outermost open one is closed until the walk is back there.
    void park_outer_level() {
        if (levels_.size() > open_levels) {
            levels_[levels_.size() - 1 - open_levels].stream.reset();
        }
    }

    // Opens a parked directory again, from the one below it. It must be the same: meanwhile the
    // lower one can have been moved elsewhere.
    static bool reopen(tree_level &level, int below) {
        const int fd = openat(below, "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        struct stat info;
        if (fd < 0) {
            return false;
        }
        if (fstat(fd, &info) == 0 && info.st_dev == level.device && info.st_ino == level.inode) {
            level.stream.reset(fdopendir(fd));
        }
        if (!level.stream) {
            close(fd);
        }
        return level.stream != nullptr;
    }

    // Ends the innermost level. False if the directory above it can't be reached any more.
    bool leave_level() {
        tree_level done = std::move(levels_.back());
        levels_.pop_back();
        if (!levels_.empty() && !levels_.back().stream &&
            !reopen(levels_.back(), dirfd(done.stream.get()))) {
            report({.kind = event_kind::directory_not_returned_to,
                    .path = path_.substr(0, done.path_before)});
            return false;
        }
        bool good = done.whole;
        if (closedir(done.stream.release()) != 0) {
            report({.kind = event_kind::directory_not_closed, .path = path_});
            good = false;
        } else if (!visitor_.leave(parent_fd(), path_.c_str() + done.name_at, path_)) {
            good = false;
        }
        path_.resize(done.path_before);
        remember(good);
        return true;
    }

    tree_visitor &visitor_;
    std::string path_;
    std::vector<tree_level> levels_;
    bool whole_ = true;
};

}  // namespace

bool walk_tree(const char *path, tree_visitor &visitor) {
    return tree_walk(path, visitor).run();
}
