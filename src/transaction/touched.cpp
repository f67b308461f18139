#include "transaction/touched.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <unordered_set>

#include "package/fileops.h"
#include "package/fileops_lists.h"
#include "package/preserved_copy.h"
#include "support/event.h"
#include "support/file.h"
#include "transaction/change.h"
#include "transaction/immutable.h"

static std::string saved_name(const std::string &keep, int number) {
    return keep + "/" + std::to_string(number);
}

std::string kept_path::text() const {
    std::array<char, 160> numbers;
    snprintf(numbers.data(), numbers.size(), "%d %o %u %u %llu %llu ", number, mode, owner, group,
             static_cast<unsigned long long>(device), static_cast<unsigned long long>(inode));
    return numbers.data() + path;
}

const std::string &temporary_name() {
    static const std::string name = ".vrm-new-" + std::to_string(getpid());
    return name;
}

std::string written_place(const std::string &path) {
    constexpr int most_links = 40;  // as the kernel follows
    std::string place = path;
    for (int i = 0; i < most_links; i++) {
        std::array<char, PATH_MAX> text;
        const ssize_t length = readlink(place.c_str(), text.data(), text.size());
        if (length <= 0 || length == static_cast<ssize_t>(text.size())) {
            return i > 0 && path_exists(place) ? path : place;
        }
        const std::string target(text.data(), static_cast<size_t>(length));
        place = target.starts_with('/') ? target : directory_of(place).append("/").append(target);
    }
    return path;
}

// ---- What is touched ----

namespace {

class touched_finder {
 public:
    explicit touched_finder(touched_paths *touched) : touched_(touched) {}

    // False with errno.
    bool add(const std::string &path) {
        if (!known_.insert(path).second) {
            return true;
        }
        struct stat status;
        if (lstat(path.c_str(), &status) != 0) {
            if (errno == ENOENT || errno == ENOTDIR) {
                add_absent(path);
                return true;
            }
            // No such name can be made either.
            return errno == ENAMETOOLONG || errno == ELOOP;
        }
        if (S_ISREG(status.st_mode) || S_ISLNK(status.st_mode)) {
            keep(path, status);
        }
        // A link that leads nowhere is written through.
        if (S_ISLNK(status.st_mode)) {
            const std::string place = written_place(path);
            return place == path || add(place);
        }
        return true;
    }

    // A directory or link that goes and is replaced by something of another kind. False with errno.
    bool add_replaced(const std::string &path) {
        struct stat status;
        if (lstat(path.c_str(), &status) != 0) {
            return false;
        }
        if (known_.insert(path).second) {
            keep(path, status);
        }
        return true;
    }

    // A file below such a link, where nothing is yet.
    void add_below_link(const std::string &path, const std::unordered_set<std::string> &links) {
        std::vector<std::string> above;
        for (std::string dir = directory_of(path); !links.contains(dir) && dir != "/";
             dir = directory_of(dir)) {
            if (known_.insert(dir).second) {
                above.push_back(dir);
            }
        }
        touched_->absent.insert(touched_->absent.end(), above.rbegin(), above.rend());
        if (known_.insert(path).second) {
            touched_->absent.push_back(path);
        }
    }

    void add_mode(const std::string &path) {
        struct stat status;
        if (stat(path.c_str(), &status) == 0) {
            touched_->modes.emplace_back(status.st_mode & 07777, path);
        }
    }

 private:
    void keep(const std::string &path, const struct stat &status) {
        touched_->kept.push_back({static_cast<int>(touched_->kept.size()), status.st_mode,
                                  status.st_uid, status.st_gid, status.st_dev, status.st_ino,
                                  path});
    }

    void add_absent(const std::string &path) {
        std::vector<std::string> above;
        for (std::string dir = directory_of(path); dir != "/" && !present_.contains(dir);
             dir = directory_of(dir)) {
            if (path_exists(dir)) {
                present_.insert(dir);
                break;
            }
            if (!known_.insert(dir).second) {
                break;
            }
            above.push_back(dir);
        }
        touched_->absent.insert(touched_->absent.end(), above.rbegin(), above.rend());
        touched_->absent.push_back(path);
    }

    touched_paths *touched_;
    std::unordered_set<std::string> known_, present_;
};

}  // namespace

static bool add_all(touched_finder *finder, char *const *paths, std::string *failed) {
    for (; paths && *paths; paths++) {
        if (**paths == '/' && !finder->add(*paths)) {
            *failed = *paths;
            return false;
        }
    }
    return true;
}

static bool add_links(touched_finder *finder, const std::string &list,
                      const std::unordered_set<std::string> &going, std::string *failed) {
    std::vector<link_entry> entries;
    *failed = list;
    if (path_exists(list) && !read_link_list(list, &entries)) {
        return false;
    }
    link_resolver resolver(going);
    for (const link_entry &entry : entries) {
        const std::string place = resolver.place_of(entry);
        if (!place.empty() && !finder->add(place)) {
            *failed = place;
            return false;
        }
    }
    return true;
}

static bool add_modes(touched_finder *finder, const std::string &list, std::string *failed) {
    std::vector<perm_entry> entries;
    std::vector<refused_line> refused;
    *failed = list;
    if (path_exists(list) && !read_perm_list(list, &entries, &refused)) {
        return false;
    }
    for (const perm_entry &entry : entries) {
        finder->add_mode(entry.path);
    }
    return true;
}

// The files that a removal takes away. One that has no list has none; a list that can't be read is
// reported.
static bool add_indexed(touched_finder *finder, const std::string &index, std::string *failed) {
    const own_file list(fopen_regular(index.c_str()));
    if (!list && errno == ENOENT) {
        return true;
    }
    std::array<char, 4096> line;
    while (list && fgets(line.data(), line.size(), list.get())) {
        std::string path = line.data();
        path.erase(std::min(path.find('\n'), path.size()));
        if (path.starts_with('/') && !finder->add(path)) {
            *failed = path;
            return false;
        }
    }
    if (list && !ferror(list.get())) {
        return true;
    }
    report({.kind = event_kind::file_not_read, .path = index, .error = errno});
    return false;
}

// What makes way for something of another kind, ahead of what else is touched there.
static bool add_changed_kinds(touched_finder *finder, change *change, std::string *failed) {
    const changed_kinds &kinds = change->kinds;
    for (const std::string &path : kinds.directories) {
        if (!finder->add_replaced(path)) {
            *failed = path;
            return false;
        }
    }
    for (const std::string &path : kinds.links) {
        if (!finder->add_replaced(path)) {
            *failed = path;
            return false;
        }
    }
    change->touched.gone_links.assign(kinds.links.begin(), kinds.links.end());
    for (const std::string &path : kinds.below_links) {
        finder->add_below_link(path, kinds.links);
    }
    return true;
}

bool find_touched(change *change) {
    touched_paths &touched = change->touched;
    touched.keep = change->stage.base + "/keep";
    touched.temporary = temporary_name();
    touched_finder finder(&touched);
    std::string failed;
    const bool found =
        change->new_package
            ? add_changed_kinds(&finder, change, &failed) &&
                  add_all(&finder, change->taken.get(), &failed) &&
                  add_all(&finder, change->written.get(), &failed) &&
                  add_all(&finder, change->forks.conf.get(), &failed) &&
                  (!fork_has(change->forks.info, "/link.txt") ||
                   add_links(&finder, change->stage.fresh + "/info/link.txt", change->kinds.links,
                             &failed)) &&
                  (!fork_has(change->forks.info, "/perm.txt") ||
                   add_modes(&finder, change->stage.fresh + "/info/perm.txt", &failed))
            : add_indexed(&finder, change->places.index, &failed) &&
                  add_links(&finder, change->places.entry + "/link.txt", change->kinds.links,
                            &failed);
    if (!found && !failed.empty()) {
        report({.kind = event_kind::path_not_saved,
                .who = change->by->who,
                .path = failed,
                .error = errno});
    }
    return found && are_directories_changeable(*change);
}

// ---- Saving and putting back ----

// A copy with all that belongs to it in an open directory, whole or not at all.
static bool copy_whole(const std::string &source, int directory, const std::string &name) {
    unlinkat(directory, name.c_str(), 0);
    if (copy_preserved(source.c_str(), name.c_str(), directory)) {
        return true;
    }
    const int reason = errno;
    unlinkat(directory, name.c_str(), 0);
    errno = reason;
    return false;
}

bool save_kept(const change &change) {
    const touched_paths &touched = change.touched;
    if (touched.kept.empty()) {
        return true;
    }
    const auto failed = [&](const std::string &path) {
        report({.kind = event_kind::path_not_saved,
                .who = change.by->who,
                .path = path,
                .error = errno});
        return false;
    };
    // What lies there without a record is of no use to anybody.
    if (vrm_vrf_rmdir(touched.keep.c_str()) != 0 || mkdir(touched.keep.c_str(), 0700) != 0) {
        return failed(touched.keep);
    }
    const own_fd keep(open(touched.keep.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (const kept_path &kept : touched.kept) {
        const std::string name = std::to_string(kept.number);
        if (S_ISDIR(kept.mode)) {
            continue;
        }
        if (linkat(AT_FDCWD, kept.path.c_str(), keep.get(), name.c_str(), 0) == 0) {
            continue;
        }
        // An immutable file is one of those that can't be linked.
        if (S_ISREG(kept.mode) && !is_file_changeable(change, kept.path)) {
            return false;
        }
        // What a file system or the kernel refuses to link is copied.
        if (!copy_whole(kept.path, keep.get(), name)) {
            return failed(kept.path);
        }
    }
    return true;
}

bool leads_through_link(const std::unordered_set<std::string> &links, const std::string &path) {
    if (links.empty()) {
        return false;
    }
    for (std::string above = directory_of(path); above != "/"; above = directory_of(above)) {
        struct stat status;
        if (links.contains(above) && lstat(above.c_str(), &status) == 0 &&
            S_ISLNK(status.st_mode)) {
            return true;
        }
    }
    return false;
}

static bool is_empty(const std::string &path) {
    const own_dir dir(opendir(path.c_str()));
    errno = 0;
    const dirent *entry = dir ? readdir(dir.get()) : nullptr;
    while (entry && (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0)) {
        entry = readdir(dir.get());
    }
    return dir && !entry && errno == 0;
}

bool set_directory_aside(const touched_paths &touched, const std::string &path) {
    const auto kept =
        std::find_if(touched.kept.begin(), touched.kept.end(),
                     [&path](const kept_path &candidate) { return candidate.path == path; });
    if (kept == touched.kept.end()) {
        errno = ENOENT;
        return false;
    }
    const std::string saved = saved_name(touched.keep, kept->number);
    if (rename(path.c_str(), saved.c_str()) != 0) {
        return rmdir(path.c_str()) == 0;
    }
    if (is_empty(saved)) {
        return true;
    }
    // Something came meanwhile.
    if (rename(saved.c_str(), path.c_str()) == 0) {
        errno = ENOTEMPTY;
    }
    return false;
}

// Removes a directory in which there are only directories. False with errno.
static bool remove_empty_tree(const std::string &path) {
    const own_dir dir(opendir(path.c_str()));
    while (const dirent *entry = dir ? readdir(dir.get()) : nullptr) {
        const std::string name = entry->d_name;
        const std::string below = std::string(path).append("/").append(name);
        struct stat status;
        if (name != "." && name != ".." && lstat(below.c_str(), &status) == 0 &&
            S_ISDIR(status.st_mode)) {
            remove_empty_tree(below);
        }
    }
    return rmdir(path.c_str()) == 0;
}

// Removes a directory in the place of something else, with what the change brought into it. False
// with errno.
static bool clear_place(const touched_paths &touched, const std::string &path) {
    const std::string below = path + "/";
    for (const std::string &absent : touched.absent) {
        if (absent.starts_with(below)) {
            unlink(absent.c_str());
        }
    }
    return remove_empty_tree(path);
}

// False with errno.
static bool restore_directory(const kept_path &kept, const std::string &saved) {
    const char *const path = kept.path.c_str();
    struct stat is;
    if (lstat(path, &is) == 0 && !S_ISDIR(is.st_mode) && unlink(path) != 0) {
        return false;
    }
    if (!path_exists(kept.path) && rename(saved.c_str(), path) != 0 && mkdir(path, 0700) != 0) {
        return false;
    }
    if (lstat(path, &is) != 0) {
        return false;
    }
    const bool is_same = is.st_uid == kept.owner && is.st_gid == kept.group &&
                         (is.st_mode & 07777) == (kept.mode & 07777);
    return is_same ||
           (chown(path, kept.owner, kept.group) == 0 && chmod(path, kept.mode & 07777) == 0);
}

// Puts a saved file in its place, also from another file system. False with errno.
static bool put_back(const std::string &saved, const touched_paths &touched,
                     const std::string &path) {
    if (rename(saved.c_str(), path.c_str()) == 0) {
        return true;
    }
    if (errno == ENOENT && !path_exists(directory_of(path))) {
        std::string directory = directory_of(path);
        vrm_vrf_mkdir(directory.data(), 0755);
        if (rename(saved.c_str(), path.c_str()) == 0) {
            return true;
        }
    }
    if (errno != EXDEV && errno != EBUSY) {
        return false;
    }
    // The directory can be a user's: all of it is done in the one that is open.
    const own_fd directory(open(directory_of(path).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const char *const beside = touched.temporary.c_str();
    if (directory.valid() && copy_whole(saved, directory.get(), beside)) {
        if (renameat(directory.get(), beside, directory.get(),
                     path.c_str() + path.rfind('/') + 1) == 0) {
            unlink(saved.c_str());
            return true;
        }
        const int reason = errno;
        unlinkat(directory.get(), beside, 0);
        errno = reason;
    }
    // A mount point keeps its inode.
    if (errno == EBUSY && write_over(path.c_str(), saved.c_str(), belongings::all)) {
        unlink(saved.c_str());
        return true;
    }
    return false;
}

static bool not_put_back(const kept_path &kept, const std::string &saved) {
    report(
        {.kind = event_kind::path_not_put_back, .path = kept.path, .other = saved, .error = errno});
    return false;
}

static bool restore_file(const touched_paths &touched, const kept_path &kept) {
    const std::string saved = saved_name(touched.keep, kept.number);
    struct stat was;
    if (lstat(saved.c_str(), &was) != 0 && errno == ENOENT) {
        return true;  // back in its place, or never changed
    }
    struct stat is;
    if (lstat(kept.path.c_str(), &is) == 0 && S_ISDIR(is.st_mode) &&
        !clear_place(touched, kept.path)) {
        return not_put_back(kept, saved);
    }
    return is_what_was_saved(kept.path, saved) || put_back(saved, touched, kept.path) ||
           not_put_back(kept, saved);
}

bool restore_directories(const touched_paths &touched) {
    bool all = true;
    for (const kept_path &kept : touched.kept) {
        if (S_ISDIR(kept.mode)) {
            const std::string saved = saved_name(touched.keep, kept.number);
            all = (restore_directory(kept, saved) || not_put_back(kept, saved)) && all;
        }
    }
    return all;
}

bool restore_ways(const touched_paths &touched) {
    bool all = restore_directories(touched);
    for (const kept_path &kept : touched.kept) {
        struct stat is;
        if (S_ISLNK(kept.mode) && (lstat(kept.path.c_str(), &is) != 0 || !S_ISDIR(is.st_mode))) {
            all = restore_file(touched, kept) && all;
        }
    }
    return all;
}

bool restore_kept(const touched_paths &touched) {
    bool all = restore_ways(touched);
    for (const kept_path &kept : touched.kept) {
        all = (S_ISDIR(kept.mode) || restore_file(touched, kept)) && all;
    }
    return all;
}

bool restore_modes(const touched_paths &touched) {
    bool all = true;
    for (const auto &[mode, path] : touched.modes) {
        struct stat is;
        if (stat(path.c_str(), &is) == 0 && (is.st_mode & 07777) != mode &&
            chmod(path.c_str(), mode) != 0) {
            report({.kind = event_kind::mode_not_set, .path = path, .error = errno});
            all = false;
        }
    }
    return all;
}

// ---- File systems ----

void touched_systems::add(const std::string &directory) {
    own_fd opened(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    struct stat status;
    if (opened.valid() && fstat(opened.get(), &status) == 0) {
        systems_.try_emplace(status.st_dev, std::move(opened));
    }
}

void touched_systems::add_directory_of(const std::string &path) {
    std::string directory = directory_of(path);
    while (known_.insert(directory).second) {
        struct stat status;
        if (stat(directory.c_str(), &status) == 0) {
            if (!systems_.contains(status.st_dev)) {
                add(directory);
            }
            return;
        }
        directory = directory_of(directory);
    }
}

bool touched_systems::sync() const {
    for (const auto &[device, directory] : systems_) {
        if (syncfs(directory.get()) != 0) {
            return false;
        }
    }
    return true;
}
