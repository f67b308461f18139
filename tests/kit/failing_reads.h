// Directories and files that break off while they are read, as on a disk that fails. It defines
// readdir, read and fdopen for the program that includes it.
#pragma once

#include <dirent.h>
#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "kit/switch.h"

// Within its life a directory gives so many entries, and then an error.
class FailingReaddir {
 public:
    explicit FailingReaddir(int entries) {
        left_ = entries;
    }
    ~FailingReaddir() {
        left_ = -1;
    }
    FailingReaddir(const FailingReaddir &) = delete;
    FailingReaddir &operator=(const FailingReaddir &) = delete;

    static bool fails_now() {
        return left_ >= 0 && left_-- == 0;
    }

 private:
    static inline int left_ = -1;  // -1: any number
};

// Within its life no byte comes from a descriptor. What reads through a stream doesn't notice.
using FailingRead = Switch<struct read_fails>;

// Within its life a stream that is made of a descriptor gives so many bytes, and then an error.
class FailingStream {
 public:
    explicit FailingStream(ssize_t bytes) {
        left_ = bytes;
    }
    ~FailingStream() {
        left_ = -1;
    }
    FailingStream(const FailingStream &) = delete;
    FailingStream &operator=(const FailingStream &) = delete;

    static bool active() {
        return left_ >= 0;
    }
    // The descriptor is the stream's from here on.
    static FILE *open(int fd) {
        fd_ = fd;
        return fopencookie(nullptr, "r", {take, nullptr, nullptr, give_up});
    }

 private:
    static ssize_t take(void *, char *buffer, size_t size) {
        if (left_ == 0) {
            errno = EIO;
            return -1;
        }
        const ssize_t got = ::read(fd_, buffer, std::min(size, static_cast<size_t>(left_)));
        left_ -= got;
        return got;
    }
    static int give_up(void *) {
        return close(fd_);
    }

    static inline ssize_t left_ = -1;  // -1: any number
    static inline int fd_ = -1;
};

extern "C" FILE *fdopen(int fd, const char *how) noexcept {
    static const auto real =
        reinterpret_cast<FILE *(*)(int, const char *)>(dlsym(RTLD_NEXT, "fdopen"));
    return FailingStream::active() ? FailingStream::open(fd) : real(fd, how);
}

extern "C" dirent *readdir(DIR *dir) {
    // The name that the one with large offsets has everywhere.
    static const auto real = reinterpret_cast<dirent *(*)(DIR *)>(dlsym(RTLD_NEXT, "readdir64"));
    if (FailingReaddir::fails_now()) {
        errno = EIO;
        return nullptr;
    }
    return real(dir);
}

extern "C" ssize_t read(int fd, void *buffer, size_t size) {
    static const auto real =
        reinterpret_cast<ssize_t (*)(int, void *, size_t)>(dlsym(RTLD_NEXT, "read"));
    if (FailingRead::active()) {
        errno = EIO;
        return -1;
    }
    return real(fd, buffer, size);
}
