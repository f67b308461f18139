// Loaded ahead of the C library: writes the calls that decide whether a change of a directory
// outlives a power failure, in their order and with their paths, to the file that NOTE_CALLS names.
#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

static void note(const std::string &line) {
    const char *path = getenv("NOTE_CALLS");
    if (FILE *file = path ? fopen(path, "a") : nullptr) {
        fputs((line + "\n").c_str(), file);
        fclose(file);
    }
}

template <typename Function>
static Function next(const char *name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

extern "C" int fsync(int fd) {
    char path[4096];
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    const ssize_t length = readlink(link.c_str(), path, sizeof path);
    note("fsync " + std::string(path, length > 0 ? static_cast<size_t>(length) : 0));
    return next<int (*)(int)>("fsync")(fd);
}

extern "C" int rename(const char *from, const char *to) noexcept {
    note(std::string("rename ") + from + " " + to);
    return next<int (*)(const char *, const char *)>("rename")(from, to);
}

extern "C" int unlink(const char *path) noexcept {
    const int result = next<int (*)(const char *)>("unlink")(path);
    if (result == 0) {
        note(std::string("unlink ") + path);
    }
    return result;
}
