#include "backends/vrc-dirs/index_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

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

bool write_all(int file, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = write(file, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<size_t>(written));
    }
    return true;
}

// Without this a power cut may keep the file and lose its name. A file system that can't sync a
// directory is no reason to do without an index.
void sync_directory(const std::string &directory) {
    const own_fd opened(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (opened.valid()) {
        static_cast<void>(fsync(opened.get()));
    }
}

// The steps up to the new name; errno tells which reason stopped them.
bool write_and_rename(int file, std::string_view bytes, const char *from, const char *to) {
    return write_all(file, bytes) && fchmod(file, readable_file) == 0 && fsync(file) == 0 &&
           rename(from, to) == 0;
}

}  // namespace

std::unique_ptr<Index> open_index(const std::string &directory, Reports *reports) {
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
    auto index = Index::mapped(file.get(), static_cast<uint64_t>(status.st_size));
    if (!index) {
        reports->warn("not using the index " + path + ": it is damaged or of another version", 0,
                      path.c_str());
    }
    return index;
}

bool store_index(const std::string &directory, std::string_view bytes, Reports *reports) {
    if (directory.empty()) {
        return false;
    }
    // What may be wrong with the directory shows in the next step.
    if (mkdir(directory.c_str(), readable_directory) == 0) {
        static_cast<void>(chmod(directory.c_str(), readable_directory));
    }
    std::string temporary = directory + "/.vrc-dirs.index.XXXXXX";
    const own_fd file(mkostemp(temporary.data(), O_CLOEXEC));
    const bool stored = file.valid() && write_and_rename(file.get(), bytes, temporary.c_str(),
                                                         path_in(directory).c_str());
    if (!stored) {
        const std::string text = "cannot keep the index in " + directory + ", working from memory";
        if (geteuid() == 0) {
            reports->warn(text, errno, directory.c_str());
        } else {
            log_say(LEVEL_INFO, "vrc-dirs: %s: %s", text.c_str(), strerror(errno));
        }
        if (file.valid()) {
            unlink(temporary.c_str());
        }
        return false;
    }
    sync_directory(directory);
    return true;
}

}  // namespace vrc_dirs
