#include "support/atomic_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "support/file.h"

static own_fd make_file(std::string *path) {
    if (path->ends_with("XXXXXX")) {
        return own_fd(mkostemp(path->data(), O_CLOEXEC));
    }
    unlink(path->c_str());
    return own_fd(open(path->c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
}

atomic_file::atomic_file(const std::string &path, const std::string &beside)
    : path_(path), beside_(beside), file_(make_file(&beside_)) {
    if (!file_.valid()) {
        beside_.clear();
    }
}

atomic_file::~atomic_file() {
    const int reason = errno;
    if (!beside_.empty()) {
        unlink(beside_.c_str());
    }
    errno = reason;
}

bool atomic_file::write(std::string_view bytes) {
    return write_all(file_.get(), bytes);
}

bool atomic_file::commit(mode_t mode, durability how) {
    if (fchmod(file_.get(), mode) != 0 || (how == durability::synced && fsync(file_.get()) != 0) ||
        file_.close() != 0 || rename(beside_.c_str(), path_.c_str()) != 0) {
        return false;
    }
    beside_.clear();
    return true;
}

bool write_atomically(const std::string &path, std::string_view bytes, mode_t mode,
                      durability how) {
    atomic_file file(path, path + ".new");
    return file.is_open() && file.write(bytes) && file.commit(mode, how);
}

bool write_new_file(const std::string &path, std::string_view bytes, mode_t mode) {
    own_fd file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
    if (!file.valid()) {
        return false;
    }
    if (write_all(file.get(), bytes) && fsync(file.get()) == 0 && file.close() == 0) {
        return true;
    }
    const int reason = errno;
    unlink(path.c_str());
    errno = reason;
    return false;
}

bool sync_directory(const std::string &directory) {
    const own_fd opened(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return opened.valid() && fsync(opened.get()) == 0;
}
