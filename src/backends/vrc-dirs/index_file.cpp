#include "backends/vrc-dirs/index_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "support/atomic_file.h"
#include "support/file.h"
#include "support/log.h"
#include "support/own.h"

namespace vrc_dirs {

namespace {

// The index is read by every user, whatever the mask of the one who refreshes.
constexpr mode_t readable_directory = 0755;
constexpr mode_t readable_file = 0644;

std::string path_in(const std::string &directory) {
    return directory + "/vrc-dirs.index";
}

// With what is missing above it. What may be wrong with it shows in the next step.
void make_directory(const std::string &path) {
    const std::string above = path.substr(0, path.rfind('/'));
    if (!above.empty() && !path_exists(above)) {
        make_directory(above);
    }
    if (mkdir(path.c_str(), readable_directory) != 0) {
        return;
    }
    // Not by its name, in the place of which somebody may have put a link.
    const own_fd made(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (made.valid()) {
        static_cast<void>(fchmod(made.get(), readable_directory));
    }
}

}  // namespace

std::unique_ptr<catalogue_index> open_index(const std::string &directory,
                                            backend_reports *reports) {
    if (directory.empty()) {
        return nullptr;
    }
    const std::string path = path_in(directory);
    // Neither a link nor a FIFO that someone put there.
    const own_fd file(
        open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
    struct stat status = {};
    if (!file.valid() || fstat(file.get(), &status) != 0) {
        if (errno != ENOENT && errno != ENOTDIR) {
            reports->warn("cannot open the index " + path, errno, path.c_str());
        }
        return nullptr;
    }
    const bool is_ours = status.st_uid == 0 || status.st_uid == geteuid();
    if (!S_ISREG(status.st_mode) || !is_ours || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        reports->warn("not using the index " + path +
                          ": it is not a file that only root or the caller can write to",
                      0, path.c_str());
        return nullptr;
    }
    auto index = catalogue_index::mapped(file.get(), static_cast<uint64_t>(status.st_size));
    if (!index) {
        reports->warn("not using the index " + path + ": it is damaged or of another version", 0,
                      path.c_str());
    }
    return index;
}

bool store_index(const std::string &directory, std::string_view bytes, backend_reports *reports) {
    if (directory.empty()) {
        return false;
    }
    make_directory(directory);
    atomic_file file(path_in(directory), directory + "/.vrc-dirs.index.XXXXXX");
    if (!file.is_open() || !file.write(bytes) || !file.commit(readable_file, durability::synced)) {
        const std::string text = "cannot keep the index in " + directory + ", working from memory";
        if (geteuid() == 0) {
            reports->warn(text, errno, directory.c_str());
        } else {
            log_say(LEVEL_INFO, "vrc-dirs: %s: %s", text.c_str(), strerror(errno));
        }
        return false;
    }
    // A file system that can't sync a directory is no reason to do without an index.
    static_cast<void>(sync_directory(directory));
    return true;
}

}  // namespace vrc_dirs
