#include "pvrm/config_files.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "package/vrs.h"
#include "pvrm/tell.h"

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

bool is_edited(const vrm_handle *repository, const char *package, const std::string &path) {
    const std::string copy = shipped_config_dir(repository, package) + path;
    char live[41], shipped[41];
    return !vrs_sha1_file(path.c_str(), 'x', live) || !vrs_sha1_file(copy.c_str(), 'x', shipped) ||
           std::string(live) != shipped;
}

std::vector<kept_config> config_to_keep(const vrm_handle *repository, const char *package) {
    std::vector<kept_config> found;
    for (const std::string &path : config_files(repository, package)) {
        found.push_back({path, is_edited(repository, package, path)});
    }
    return found;
}

void tell_kept(const std::vector<kept_config> &files) {
    for (const kept_config &file : files) {
        struct stat status;
        if (lstat(file.path.c_str(), &status) != 0) {
            continue;  // a script of the package took it away
        }
        if (file.edited) {
            tell_problem("keeping config file %s (edited)", file.path.c_str());
        } else {
            tell_step("keeping config file %s", file.path.c_str());
        }
    }
}
