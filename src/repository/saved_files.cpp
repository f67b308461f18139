#include "repository/saved_files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <utility>

#include "package/fileops.h"
#include "package/preserved_copy.h"
#include "package/tree_walk.h"
#include "support/boundary.h"
#include "support/event.h"
#include "support/own.h"

static constexpr char time_format[] = "%Y-%m-%dT%H:%M:%S";
static constexpr size_t time_length = sizeof "2026-11-21T20:00:00" - 1;

// A unique name may be as long as a file name, and here it has the time and a number beside it.
static constexpr size_t longest_name = 200;

std::string saved_directory(const vrm_handle *handle) {
    return std::string(handle->dir) + "/saved";
}

static bool cannot_keep(const std::string &path, const std::string &place, int error) {
    report({.kind = event_kind::copy_not_kept, .path = path, .other = place, .error = error});
    return false;
}

// Opens the directory of all saved files, which must be one of our own.
static own_fd open_all(const std::string &path) {
    own_fd all(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status;
    if (all.valid() && (fstat(all.get(), &status) != 0 || status.st_uid != geteuid())) {
        errno = EPERM;
        return own_fd();
    }
    return all;
}

saved_change::saved_change(const vrm_handle *handle, const std::string &puname)
    : all_(saved_directory(handle)), puname_(puname.substr(0, longest_name)) {}

// Makes the directory of the change under a name that is not taken yet. False with errno.
bool saved_change::make_directory() {
    if (mkdir(all_.c_str(), 0700) != 0 && errno != EEXIST) {
        return false;
    }
    const own_fd all = open_all(all_);
    // Ahead of the first name in it, so that nobody else can put anything there.
    if (!all.valid() || fchmod(all.get(), 0700) != 0) {
        return false;
    }
    char moment[time_length + 1];
    const time_t now = time(nullptr);
    struct tm parts;
    if (!localtime_r(&now, &parts) || strftime(moment, sizeof moment, time_format, &parts) == 0) {
        errno = EOVERFLOW;
        return false;
    }
    const std::string name = std::string(moment) + "_" + puname_;
    std::string unique = name;
    for (int number = 2; mkdirat(all.get(), unique.c_str(), 0700) != 0; number++) {
        if (errno != EEXIST) {
            return false;
        }
        unique = name + "#" + std::to_string(number);
    }
    directory_ = all_ + "/" + unique;
    return true;
}

bool saved_change::begin(const std::string &path) {
    return !directory_.empty() || make_directory() || cannot_keep(path, all_, errno);
}

bool saved_change::keep(const std::string &path) {
    if (!begin(path)) {
        return false;
    }
    const std::filesystem::path copy = copy_of(path);
    std::error_code failed;
    std::filesystem::create_directories(copy.parent_path(), failed);
    if (failed) {
        return cannot_keep(path, directory_, failed.value());
    }
    return copy_preserved(path.c_str(), copy.c_str()) || cannot_keep(path, directory_, errno);
}

// Of the whole file system at once: with names and directories, and in one turn for thousands of
// files.
bool saved_change::sync() const {
    if (directory_.empty()) {
        return true;
    }
    const own_fd directory(open(directory_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory.valid() && syncfs(directory.get()) == 0) {
        return true;
    }
    report({.kind = event_kind::copies_not_written, .path = directory_, .error = errno});
    return false;
}

void saved_change::discard() const {
    if (!directory_.empty()) {
        vrm_vrf_rmdir(directory_.c_str());
    }
}

namespace {

// Gathers the files of a set.
class file_lister : public tree_visitor {
 public:
    file_lister(std::vector<saved_file> *files, size_t before) : files_(files), before_(before) {}

    bool leaf(int parent, const char *name, const struct stat &info,
              const std::string &path) override {
        saved_file file = {path.substr(before_), "", static_cast<uint64_t>(info.st_size)};
        if (S_ISLNK(info.st_mode)) {
            file.target.resize(static_cast<size_t>(info.st_size));
            if (readlinkat(parent, name, file.target.data(), file.target.size()) < 0) {
                file.target = "?";
            }
        }
        files_->push_back(std::move(file));
        return true;
    }
    bool leave(int, const char *, const std::string &) override {
        return true;
    }

 private:
    std::vector<saved_file> *files_;
    size_t before_;  // how much of a path is the set's directory
};

}  // namespace

// What the name of a directory says. False when it is not one of ours.
static bool parse_name(const std::string &name, saved_set *set) {
    struct tm parts = {};
    parts.tm_isdst = -1;
    const char *rest = strptime(name.c_str(), time_format, &parts);
    if (rest != name.c_str() + time_length || *rest != '_') {
        return false;
    }
    set->time = mktime(&parts);
    set->package = name.substr(time_length + 1);
    set->package.resize(std::min(set->package.find('#'), set->package.size()));
    return !set->package.empty();
}

// The names in a directory, sorted. False with errno.
static bool read_names(own_fd all, std::vector<std::string> *names) {
    const own_dir stream(fdopendir(all.get()));
    if (!stream) {
        return false;
    }
    all.release();
    while (const dirent *entry = next_entry(stream)) {
        if (!is_self_or_parent(entry)) {
            names->emplace_back(entry->d_name);
        }
    }
    std::sort(names->begin(), names->end());
    return errno == 0;
}

bool list_saved(const vrm_handle *handle, saved_listing *listing) {
    return guarded(false, [&] {
        const std::string all = saved_directory(handle);
        own_fd fd = open_all(all);
        if (!fd.valid()) {
            return errno == ENOENT;
        }
        std::vector<std::string> names;
        if (!read_names(std::move(fd), &names)) {
            return false;
        }
        for (const std::string &name : names) {
            saved_set set = {std::string(all).append("/").append(name), 0, "", {}};
            struct stat status;
            if (!parse_name(name, &set) || lstat(set.directory.c_str(), &status) != 0 ||
                !S_ISDIR(status.st_mode)) {
                listing->strange.push_back(set.directory);
                continue;
            }
            file_lister lister(&set.files, set.directory.size());
            errno = 0;
            if (!walk_tree(set.directory.c_str(), lister)) {
                return false;
            }
            std::sort(set.files.begin(), set.files.end(),
                      [](const saved_file &a, const saved_file &b) { return a.path < b.path; });
            listing->sets.push_back(std::move(set));
        }
        return true;
    });
}

void remove_empty_sets(const vrm_handle *handle) {
    saved_listing listing;
    if (!list_saved(handle, &listing)) {
        return;
    }
    for (const saved_set &set : listing.sets) {
        rmdir(set.directory.c_str());  // what is in one keeps it
    }
}

bool remove_saved(const saved_set &set) {
    return vrm_vrf_rmdir(set.directory.c_str()) == 0;
}
