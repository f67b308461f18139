#include "backends/vrc-dirs/scan.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "support/own.h"

namespace vrc_dirs {

namespace {

// The first directory may be a link, those below may not. Each is opened by its whole path, so that
// a deep tree costs no descriptors.
own_dir open_directory(const std::string &path, bool may_be_link, backend_reports *reports) {
    const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK;
    const int fd = open(path.c_str(), may_be_link ? flags : flags | O_NOFOLLOW);
    own_dir stream(fd < 0 ? nullptr : fdopendir(fd));
    if (!stream) {
        reports->unreadable_directory(path, errno, false);
        if (fd >= 0) {
            close(fd);
        }
    }
    return stream;
}

bool is_directory(int parent, const dirent &entry) {
    if (entry.d_type != DT_UNKNOWN) {
        return entry.d_type == DT_DIR;
    }
    struct stat status = {};
    return fstatat(parent, entry.d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISDIR(status.st_mode);
}

bool is_package_name(const char *name) {
    const size_t length = strlen(name);
    return length > 4 && strcmp(name + length - 4, ".vrk") == 0;
}

void add_file(int parent, const char *name, const std::string &path, size_t relative_at,
              std::vector<found_file> *files, backend_reports *reports) {
    struct stat status = {};
    if (fstatat(parent, name, &status, 0) != 0) {
        reports->skipped_file(path, errno);
    } else if (!S_ISREG(status.st_mode)) {
        reports->skipped_file(path, "not a regular file");
    } else {
        files->push_back({path, static_cast<uint32_t>(relative_at), stamp_of(status)});
    }
}

// Adds a directory's files, and its directories to those that wait.
bool list_directory(const std::string &path, bool is_first, size_t relative_at,
                    std::vector<found_file> *files, std::vector<std::string> *waiting,
                    backend_reports *reports) {
    const own_dir stream = open_directory(path, is_first, reports);
    if (!stream) {
        return false;
    }
    const int fd = dirfd(stream.get());
    const std::string base = path == "/" ? path : path + '/';
    while (const dirent *entry = next_entry(stream)) {
        const char *name = entry->d_name;
        if (*name != '.') {
            if (is_directory(fd, *entry)) {
                waiting->push_back(base + name);
            } else if (is_package_name(name)) {
                add_file(fd, name, base + name, relative_at, files, reports);
            }
        }
    }
    if (errno != 0) {
        reports->unreadable_directory(path, errno, true);
    }
    return true;
}

}  // namespace

scan_result scan(const std::vector<std::string> &dirs, backend_reports *reports) {
    scan_result result;
    for (const std::string &dir : dirs) {
        const size_t relative_at = dir == "/" ? 1 : dir.size() + 1;
        std::vector<std::string> waiting;
        if (list_directory(dir, true, relative_at, &result.files, &waiting, reports)) {
            result.directories_read++;
        }
        while (!waiting.empty()) {
            const std::string path = std::move(waiting.back());
            waiting.pop_back();
            list_directory(path, false, relative_at, &result.files, &waiting, reports);
        }
    }
    std::vector<found_file> &files = result.files;
    std::stable_sort(files.begin(), files.end(),
                     [](const found_file &a, const found_file &b) { return a.path < b.path; });
    files.erase(
        std::unique(files.begin(), files.end(),
                    [](const found_file &a, const found_file &b) { return a.path == b.path; }),
        files.end());
    return result;
}

}  // namespace vrc_dirs
