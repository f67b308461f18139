#include "repository/dirsearch.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "package/head.h"
#include "package/variant.h"
#include "package/vrf.h"
#include "package/vrs.h"
#include "repository/choice.h"
#include "support/arch.h"
#include "support/boundary.h"
#include "support/event.h"
#include "support/log.h"

namespace {

constexpr size_t path_limit = 4097;

// The names of a directory's regular files, in order: of equal versions the first one is chosen,
// and that must not be an accident of the file system. None when it can't be read to its end.
std::vector<std::string> regular_files(const char *directory) {
    std::vector<std::string> names;
    const own_dir stream(opendir(directory));
    if (!stream) {
        report(
            {.kind = event_kind::search_directory_not_opened, .path = directory, .error = errno});
        return names;
    }
    while (const dirent *entry = next_entry(stream)) {
        if (entry->d_type == DT_REG) {
            names.emplace_back(entry->d_name);
        }
    }
    if (errno != 0) {
        report({.kind = event_kind::inventory_not_read, .path = directory, .error = errno});
        return {};  // the newest package may be among the rest
    }
    std::sort(names.begin(), names.end());
    return names;
}

bool arch_fits(const vrm_handle *handle, const vri *info) {
    const bool fits = info->arch == arch_any || info->arch == handle->arch;
    const char *package = vrm_arch_getname(info->arch);
    const char *local = vrm_arch_getname(handle->arch);
    log_debug(fits ? "Package arch %s matches local arch %s"
                   : "Package arch %s doesn't match local arch %s, skipping",
              package ? package : "unknown", local ? local : "unknown");
    return fits;
}

// The record of a file if it is a package of that name for this machine and of the variant.
own_vri candidate(vrm_handle *handle, const std::string &path, const char *name,
                  const char *variant) {
    if (!vrk_file_is_vrk(path.c_str())) {
        log_debug("Found file %s, skipping", path.c_str());
        return nullptr;
    }
    // The head tells whether the file is of interest. Reading its whole record includes a digest of
    // all of its bytes, which for every package of a directory and each dependency would be felt.
    own_file stream;
    uint64_t size;
    own_vri info = open_package(path.c_str(), &stream, &size);
    if (!info) {
        log_debug("Skipping %s, failed to read info", path.c_str());
        return nullptr;
    }
    if (!info->name || strcmp(info->name, name) != 0 || !arch_fits(handle, info.get()) ||
        !variant_fits(variant, info->variant)) {
        return nullptr;
    }
    // It names the path it was given and where that really is, which are the record's URIs.
    info.reset(vrm_vrf_info(handle, path.c_str(), 0));
    if (!info) {
        log_debug("Skipping %s, failed to read info", path.c_str());
        return nullptr;
    }
    log_debug("Storing %s, package name %s matches %s", path.c_str(), info->name, name);
    return info;
}

void search_directory(vrm_handle *handle, const char *directory, const char *name,
                      const char *variant, std::vector<own_vri> *found) {
    log_debug("Scanning directory %s", directory);
    for (const std::string &file : regular_files(directory)) {
        const std::string path = std::string(directory) + '/' + file;
        if (path.size() >= path_limit) {
            log_debug("Filename <%s> too long, skipping entry", path.c_str());
            continue;
        }
        own_vri info = candidate(handle, path, name, variant);
        if (!info) {
            continue;
        }
        if (found->size() == dirsearch_limit) {
            report({.kind = event_kind::search_limit_passed,
                    .package = name,
                    .path = path,
                    .number = static_cast<int64_t>(dirsearch_limit)});
            return;
        }
        found->push_back(std::move(info));
    }
}

}  // namespace

vri **vrm_findall_dirs(vrm_handle *handle, const char *name, const char *variant,
                       char *const *dirs) {
    return guarded(nullptr, [&]() -> vri ** {
        if (variant) {
            log_debug("Looking for package %s, variant %s", name, variant);
        } else {
            log_debug("Looking for package %s", name);
        }
        if (!dirs) {
            return nullptr;
        }
        std::vector<own_vri> found;
        for (; *dirs; ++dirs) {
            search_directory(handle, *dirs, name, variant, &found);
        }
        fprintf(stderr, "Stored %d vris\n", static_cast<int>(found.size()));
        const auto hand_out = [](own_vri &info) { return info.release(); };
        return found.empty() ? nullptr : to_c_array<own_vri_list>(found, hand_out).release();
    });
}

vri *vrm_findone_dirs(vrm_handle *handle, const char *name, const char *variant, const char *,
                      char *const *dirs) {
    const own_vri_list list(vrm_findall_dirs(handle, name, variant, dirs));
    if (!list) {
        return nullptr;
    }
    const int index = vrm_findone(name, variant, list.get());
    if (index < 0) {
        return nullptr;
    }
    // The chosen record leaves the list, and the last one takes its place.
    vri **chosen = list.get() + index;
    vri **last = chosen;
    while (last[1]) {
        ++last;
    }
    vri *info = *chosen;
    *chosen = *last;
    *last = nullptr;
    return info;
}

int vrm_stage_have_vrk(const char *file, const vri *info) {
    if (!info->filehash || info->filesize == 0) {
        return 0;
    }
    struct stat status;
    if (stat(file, &status) != 0 || static_cast<uint64_t>(status.st_size) != info->filesize) {
        return 0;
    }
    char digest[41];
    return vrs_sha1_file(file, 'x', digest) && strcmp(digest, info->filehash) == 0;
}
