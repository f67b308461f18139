#include "support/absent_directories.h"

#include <sys/stat.h>

#include <cerrno>

static bool is_absent(const std::string &directory) {
    struct stat status;
    return lstat(directory.c_str(), &status) != 0 && errno == ENOENT;
}

const std::string &absent_directories::topmost(const std::string &directory) {
    const auto found = known_.find(directory);
    if (found != known_.end()) {
        return found->second;
    }
    std::string top;
    const size_t slash = directory.rfind('/');
    if (slash != std::string::npos && !directory.empty()) {
        top = topmost(directory.substr(0, slash));
        if (top.empty() && is_absent(directory)) {
            top = directory;
        }
    }
    return known_.emplace(directory, std::move(top)).first->second;
}

const std::string &absent_directories::topmost_above(const std::string &path) {
    const size_t slash = path.rfind('/');
    return topmost(path.substr(0, slash == std::string::npos ? 0 : slash));
}

bool absent_directories::hold(const std::string &path) {
    return !topmost_above(path).empty();
}
