// A user who exchanges a file of root's in the user's own directory while it is being written. It
// defines close, fdopen and copy_file_range for the program that includes it.
#pragma once

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <utility>

// Within its life each of these calls puts a link to `victim` in the place of the file at `path`,
// when one is there.
class SwappedFile {
 public:
    SwappedFile(std::string path, std::string victim) {
        path_ = std::move(path);
        victim_ = std::move(victim);
        count_ = 0;
    }
    ~SwappedFile() {
        path_.clear();
    }
    SwappedFile(const SwappedFile &) = delete;
    SwappedFile &operator=(const SwappedFile &) = delete;

    // How often it was exchanged.
    static int count() {
        return count_;
    }
    static void swap() {
        struct stat status;
        if (!path_.empty() && lstat(path_.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
            unlink(path_.c_str()) == 0 && symlink(victim_.c_str(), path_.c_str()) == 0) {
            count_++;
        }
    }

 private:
    static inline std::string path_, victim_;
    static inline int count_ = 0;
};

extern "C" int close(int fd) {
    static const auto real = reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, "close"));
    SwappedFile::swap();
    return real(fd);
}

extern "C" FILE *fdopen(int fd, const char *how) noexcept {
    static const auto real =
        reinterpret_cast<FILE *(*)(int, const char *)>(dlsym(RTLD_NEXT, "fdopen"));
    SwappedFile::swap();
    return real(fd, how);
}

extern "C" ssize_t copy_file_range(int from, off_t *from_at, int to, off_t *to_at, size_t size,
                                   unsigned flags) {
    // The name that the one with large offsets has everywhere.
    static const auto real =
        reinterpret_cast<ssize_t (*)(int, off_t *, int, off_t *, size_t, unsigned)>(
            dlsym(RTLD_NEXT, "copy_file_range"));
    SwappedFile::swap();
    return real(from, from_at, to, to_at, size, flags);
}
