// Loaded ahead of the C library: the process kills itself instead of the rename, among those of the
// inventory's swap, whose number is in DIE_AT_RENAME, counted from 1.
#include <dlfcn.h>

#include <csignal>
#include <cstdlib>
#include <cstring>

extern "C" int rename(const char *from, const char *to) noexcept {
    static int count = 0;
    const char *number = getenv("DIE_AT_RENAME");
    const bool counts = strstr(from, "/.") || strstr(to, "/.");
    if (number && counts && ++count == atoi(number)) {
        raise(SIGKILL);
    }
    const auto next =
        reinterpret_cast<int (*)(const char *, const char *)>(dlsym(RTLD_NEXT, "rename"));
    return next(from, to);
}
