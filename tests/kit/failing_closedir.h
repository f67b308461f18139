// Within the life of a FailingClosedir the closing of a directory is reported as failed, as a
// network file system does that is gone. It defines closedir for the program that includes it.
#pragma once

#include <dirent.h>
#include <dlfcn.h>

#include <cerrno>

class FailingClosedir {
 public:
    FailingClosedir() {
        active_ = true;
    }
    ~FailingClosedir() {
        active_ = false;
    }
    FailingClosedir(const FailingClosedir &) = delete;
    FailingClosedir &operator=(const FailingClosedir &) = delete;

    static bool active() {
        return active_;
    }

 private:
    static inline bool active_ = false;
};

extern "C" int closedir(DIR *dir) {
    static const auto real = reinterpret_cast<int (*)(DIR *)>(dlsym(RTLD_NEXT, "closedir"));
    const int outcome = real(dir);
    if (!FailingClosedir::active()) {
        return outcome;
    }
    errno = EIO;
    return -1;
}
