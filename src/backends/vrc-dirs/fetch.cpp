#include "backends/vrc-dirs/fetch.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <string>
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

// Reports why the file of a package can't be had; the result of the fetch.
static int fail(const vri &package, backend_reports *reports, const std::string &text,
                int error = 0) {
    reports->fail(text, error, package.absolute_uri, package.name);
    return -1;
}

static int copy_blocks(const vri &package, FILE *in, FILE *out, backend_reports *reports) {
    const std::string path = package.absolute_uri;
    std::string block(block_size, '\0');
    int64_t written = 0;
    size_t got;
    while ((got = fread(block.data(), 1, block.size(), in)) > 0) {
        written += static_cast<int64_t>(got);
        if (written > int64_t{largest_fetch}) {
            return fail(package, reports, path + " grew to 2 GiB while it was read");
        }
        if (fwrite(block.data(), 1, got, out) != got) {
            return fail(package, reports, "failed to write the bytes of " + path, errno);
        }
    }
    if (ferror(in)) {
        return fail(package, reports, "failed to read " + path, errno);
    }
    if (fflush(out) != 0) {
        return fail(package, reports, "failed to write the bytes of " + path, errno);
    }
    return static_cast<int>(written);
}

int fetch(const std::vector<std::string> &dirs, const vri &package, FILE *out,
          backend_reports *reports) {
    const std::string path = package.absolute_uri ? package.absolute_uri : "";
    if (path.empty() || !lies_below(dirs, path)) {
        return fail(package, reports,
                    (package.absolute_uri ? path : "a record without a path") +
                        " lies in none of the configured directories");
    }
    struct stat status = {};
    const own_file in(fopen_regular(path.c_str(), &status));
    if (!in) {
        return fail(package, reports, "failed to open " + path, errno);
    }
    if (status.st_size > int64_t{largest_fetch}) {
        return fail(
            package, reports,
            path + " is too large to be fetched: " + std::to_string(status.st_size) + " bytes");
    }
    static_cast<void>(posix_fadvise(fileno(in.get()), 0, 0, POSIX_FADV_SEQUENTIAL));
    return copy_blocks(package, in.get(), out, reports);
}

}  // namespace vrc_dirs
