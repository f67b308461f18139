#include "package/fileops.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "package/tree_walk.h"
#include "support/boundary.h"
#include "support/event.h"

const char *last_char_is(const char *text, int c) {
    if (!text || !*text) {
        return nullptr;
    }
    const char *last = text + strlen(text) - 1;
    return *last == static_cast<char>(c) ? last : nullptr;
}

namespace {

class tree_remover : public tree_visitor {
 public:
    bool leaf(int parent, const char *name, const struct stat &, const std::string &path) override {
        return remove(parent, name, 0, path);
    }
    bool leave(int parent, const char *name, const std::string &path) override {
        return remove(parent, name, AT_REMOVEDIR, path);
    }

 private:
    static bool remove(int parent, const char *name, int flags, const std::string &path) {
        if (unlinkat(parent, name, flags) == 0) {
            return true;
        }
        report({.kind = event_kind::path_not_removed, .path = path});
        return false;
    }
};

class tree_measurer : public tree_visitor {
 public:
    explicit tree_measurer(uint64_t *total) : total_(total) {}
    bool leaf(int, const char *, const struct stat &info, const std::string &) override {
        *total_ += static_cast<uint64_t>(info.st_size);
        return true;
    }
    bool leave(int, const char *, const std::string &) override {
        return true;
    }

 private:
    uint64_t *total_;
};

// With a trailing slash even lstat looks behind a symbolic link.
bool is_link_with_slash(const char *path) {
    if (!last_char_is(path, '/')) {
        return false;
    }
    std::string bare(path);
    bare.erase(bare.find_last_not_of('/') + 1);
    struct stat info;
    return !bare.empty() && lstat(bare.c_str(), &info) == 0 && S_ISLNK(info.st_mode);
}

}  // namespace

int vrm_vrf_rmdir(const char *path) {
    return guarded(-1, [&] {
        if (is_link_with_slash(path)) {
            report({.kind = event_kind::path_not_removed, .path = path});
            return -1;
        }
        tree_remover remover;
        return walk_tree(path, remover) ? 0 : -1;
    });
}

int vrm_vrf_dudir(const char *path, uint64_t *total) {
    return guarded(-1, [&] {
        tree_measurer measurer(total);
        return walk_tree(path, measurer) ? 0 : -1;
    });
}

void vrm_vrf_mkdir(char *path, mode_t mode) {
    guarded([] {},
            [&] {
                const size_t given = strlen(path);
                if (given > 0 && path[given - 1] == '/') {
                    path[given - 1] = '\0';
                }
                if (mkdir(path, mode) == 0 || errno == EEXIST) {
                    return;
                }

                // Up to the first parent that is there or can be made, and down again. A loop and
                // not a recursion: a hostile path has thousands of components.
                std::string parent(path);
                std::vector<size_t> missing{parent.size()};
                for (;;) {
                    const size_t slash = parent.rfind('/');
                    if (slash == std::string::npos || slash == 0) {
                        break;
                    }
                    parent.resize(slash);
                    if (parent.back() == '/' || slash >= PATH_MAX) {
                        continue;
                    }
                    if (mkdir(parent.c_str(), 0755) == 0 || errno == EEXIST) {
                        break;
                    }
                    missing.push_back(slash);
                }
                std::string whole(path);
                for (; !missing.empty(); missing.pop_back()) {
                    const size_t end = missing.back();
                    const bool last = missing.size() == 1;
                    mkdir(whole.substr(0, end).c_str(), last ? mode : 0755);
                }
            });
}
