// A disk that reports an error when it is waited for. This defines the functions for the program
// that includes it.
#pragma once

#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

class FailingSync {
 public:
    // The next wait for a disk fails with EIO, and only that one.
    static void fail_next() {
        fails_ = true;
    }
    // Whether the wait that was to fail has not come.
    static bool is_armed() {
        return fails_;
    }
    static bool fails_now() {
        if (!fails_) {
            return false;
        }
        fails_ = false;
        errno = EIO;
        return true;
    }
    static int wait(const char *function, int fd) {
        const auto real = reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, function));
        return fails_now() ? -1 : real(fd);
    }

 private:
    static inline bool fails_ = false;
};

extern "C" int syncfs(int fd) noexcept {
    return FailingSync::wait("syncfs", fd);
}

extern "C" int fsync(int fd) {
    return FailingSync::wait("fsync", fd);
}

extern "C" int fdatasync(int fd) {
    return FailingSync::wait("fdatasync", fd);
}
