#include "pvrm/config_files.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

std::string shipped_config_dir(const vrm_handle *repository, const char *package) {
    return std::string(ekva_getval(repository->dirs, "installed")) + "/" + package + "/conf";
}

std::vector<std::string> config_files(const vrm_handle *repository, const char *package) {
    const std::string shipped = shipped_config_dir(repository, package);
    std::vector<std::string> found;
    std::error_code error;
    for (fs::recursive_directory_iterator at(shipped, error), end; !error && at != end;
         at.increment(error)) {
        const std::string path = at->path().string().substr(shipped.size());
        struct stat status;
        if (!at->is_directory(error) && lstat(path.c_str(), &status) == 0) {
            found.push_back(path);
        }
    }
    std::sort(found.begin(), found.end());
    return found;
}
