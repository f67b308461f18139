// Within the life of a FailingClosedir the closing of a directory is reported as failed, as a
// network file system does that is gone. It defines closedir for the program that includes it.
#pragma once

#include <dirent.h>
#include <dlfcn.h>

#include <cerrno>

#include "kit/switch.h"

using FailingClosedir = Switch<struct closedir_fails>;

extern "C" int closedir(DIR *dir) {
    static const auto real = reinterpret_cast<int (*)(DIR *)>(dlsym(RTLD_NEXT, "closedir"));
    const int outcome = real(dir);
    if (!FailingClosedir::active()) {
        return outcome;
    }
    errno = EIO;
    return -1;
}
