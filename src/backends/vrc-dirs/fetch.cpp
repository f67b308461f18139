#include "backends/vrc-dirs/fetch.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <filesystem>
#include <string_view>

#include "support/file.h"
#include "support/log.h"
#include "support/own.h"

namespace vrc_dirs {

static constexpr size_t block_size = size_t{1} << 20;

// A record's path may have gone through other hands than ours.
static bool lies_below(const std::vector<std::string> &dirs, std::string_view path) {
    if (std::filesystem::path(path).lexically_normal() != path) {
        return false;
    }
    for (const std::string &dir : dirs) {
        const std::string base = dir == "/" ? dir : dir + '/';
        if (path.size() > base.size() && path.starts_with(base)) {
            return true;
        }
    }
    return false;
}

static int copy_blocks(const char *path, FILE *in, FILE *out) {
    std::string block(block_size, '\0');
    int64_t written = 0;
    size_t got;
    while ((got = fread(block.data(), 1, block.size(), in)) > 0) {
        written += static_cast<int64_t>(got);
        if (written > int64_t{largest_fetch}) {
            log_say(LEVEL_ERROR, "vrc-dirs: %s grew to 2 GiB while it was read", path);
            return -1;
        }
        if (fwrite(block.data(), 1, got, out) != got) {
            log_say(LEVEL_ERROR, "vrc-dirs: failed to write the bytes of %s: %s", path,
                    strerror(errno));
            return -1;
        }
    }
    if (ferror(in)) {
        log_say(LEVEL_ERROR, "vrc-dirs: failed to read %s: %s", path, strerror(errno));
        return -1;
    }
    if (fflush(out) != 0) {
        log_say(LEVEL_ERROR, "vrc-dirs: failed to write the bytes of %s: %s", path,
                strerror(errno));
        return -1;
    }
    return static_cast<int>(written);
}

int fetch(const std::vector<std::string> &dirs, const vri &package, FILE *out) {
    const char *path = package.absolute_uri;
    if (!path || !lies_below(dirs, path)) {
        log_say(LEVEL_ERROR, "vrc-dirs: %s lies in none of the configured directories",
                path ? path : "a record without a path");
        return -1;
    }
    struct stat status = {};
    const own_file in(fopen_regular(path, &status));
    if (!in) {
        log_say(LEVEL_ERROR, "vrc-dirs: failed to open %s: %s", path, strerror(errno));
        return -1;
    }
    if (status.st_size > int64_t{largest_fetch}) {
        log_say(LEVEL_ERROR, "vrc-dirs: %s is too large to be fetched: %" PRId64 " bytes", path,
                static_cast<int64_t>(status.st_size));
        return -1;
    }
    static_cast<void>(posix_fadvise(fileno(in.get()), 0, 0, POSIX_FADV_SEQUENTIAL));
    return copy_blocks(path, in.get(), out);
}

}  // namespace vrc_dirs
