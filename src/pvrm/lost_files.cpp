#include "pvrm/lost_files.h"

#include <algorithm>

#include "pvrm/tell.h"
#include "repository/inventory.h"
#include "support/file.h"

// A disk that is full at the first of thousands of files costs all of the others.
static constexpr size_t most_told = 10;

lost_files::lost_files(inventory_snapshot &installed, const std::vector<std::string> &packages)
    : installed_(installed) {
    for (const std::string &package : packages) {
        const own_array index = index_of(package);
        std::vector<std::string> &present = present_[package];
        for (char *const *path = index.get(); path && *path; path++) {
            if (path_exists(*path)) {
                present.emplace_back(*path);
            }
        }
        std::sort(present.begin(), present.end());
    }
}

own_array lost_files::index_of(const std::string &package) const {
    const vri *const info = installed_.find(package);
    return own_array(info ? vrm_vrl_file_list(installed_.handle(), info) : nullptr);
}

void lost_files::tell() const {
    for (const auto &[package, present] : present_) {
        // What got through has an index of its own by now.
        const own_array index = index_of(package);
        std::vector<std::string> lost;
        for (char *const *path = index.get(); path && *path; path++) {
            if (!path_exists(*path) && std::binary_search(present.begin(), present.end(), *path)) {
                lost.emplace_back(*path);
            }
        }
        if (!lost.empty()) {
            tell_of(package, lost);
        }
    }
}

void lost_files::tell_of(const std::string &package, const std::vector<std::string> &lost) const {
    const size_t told = std::min(lost.size(), most_told);
    for (size_t i = 0; i < told; i++) {
        tell_problem("%s of %s was lost in the rollback", lost[i].c_str(), package.c_str());
    }
    if (told < lost.size()) {
        tell_problem("and %zu more files of %s were", lost.size() - told, package.c_str());
    }
    tell_problem(
        "pvrm verify %s lists what is missing; to have it again repeat the upgrade, or remove %s "
        "and "
        "install it",
        package.c_str(), package.c_str());
}
