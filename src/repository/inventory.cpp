#include "repository/inventory.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "support/array.h"
#include "support/boundary.h"
#include "support/event.h"
#include "support/file.h"
#include "support/growing_list.h"
#include "support/log.h"
#include "support/own.h"

static constexpr size_t longest_filename = 4096;
static constexpr int room_for_packages = 300;
static constexpr int room_for_files = 20;

const char *vrk_stat_desc(int status) {
    switch (static_cast<char>(status)) {
        case 'I':
            return "installed";
        case 'R':
            return "available remotely";
        case 'L':
            return "available locally";
        default:
            return "unavailable";
    }
}

// Names come from package files and catalogues. None of them may lead out of the inventory, or to
// the dotted entries of an update in progress.
static bool is_entry_name(std::string_view name) {
    return !name.empty() && name.front() != '.' && name.find('/') == std::string_view::npos;
}

static std::string directory_of(const vrm_handle *handle, const char *role) {
    const char *dir = ekva_getval(handle->dirs, role);
    return dir ? dir : "";
}

// A link to a directory is no entry, wherever it leads. What can't be looked at is no matter here:
// the reading of its texts fails.
static bool is_other_than_directory(const std::string &path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0 && !S_ISDIR(status.st_mode);
}

// A file of an entry, read by its path, or below the open directory of entries: then the way to
// that directory need not be found again for each of thousands of files.
static own_string read_entry_file(const std::string &installed, int dir, const char *name,
                                  const char *file) {
    const std::string below = std::string(name) + "/" + file;
    if (installed.size() + 1 + below.size() > longest_filename) {
        log_debug("Filename <%s> too long, skipping entry %s", (installed + "/" + below).c_str(),
                  name);
        return nullptr;
    }
    size_t length = 0;
    own_string text(dir == AT_FDCWD ? read_file_at(dir, (installed + "/" + below).c_str(), &length)
                                    : read_file_at(dir, below.c_str(), &length));
    if (text) {
        text.get()[length] = '\0';
    }
    return text;
}

static vri *read_entry(const std::string &installed, int dir, const char *name) {
    const own_string description = read_entry_file(installed, dir, name, "desc.txt");
    if (!description) {
        return nullptr;
    }
    const own_string inst = read_entry_file(installed, dir, name, "inst.txt");
    if (!inst) {
        return nullptr;
    }
    return vrk_info_parse(name, 2, description.get(), inst.get());
}

static vri *read_directory(vrm_handle *handle, const std::string &entry) {
    const std::string installed = directory_of(handle, "installed");
    if (is_other_than_directory(installed + "/" + entry)) {
        return nullptr;
    }
    return read_entry(installed, AT_FDCWD, entry.c_str());
}

vri *vrm_vrl_info(vrm_handle *handle, const char *name) {
    return guarded(nullptr, [&]() -> vri * {
        return name && is_entry_name(name) ? read_directory(handle, name) : nullptr;
    });
}

vri *vrm_vrl_own_info(vrm_handle *handle, const char *name) {
    own_vri info(vrm_vrl_info(handle, name));
    return info && strcmp(info->name, name) == 0 ? info.release() : nullptr;
}

vri *vrm_vrl_retired_info(vrm_handle *handle, const char *name) {
    return guarded(nullptr, [&]() -> vri * {
        return is_entry_name(name) ? read_directory(handle, std::string(".") + name + ".old")
                                   : nullptr;
    });
}

installed_walk::installed_walk(vrm_handle *handle)
    : installed_(directory_of(handle, "installed")), dir_(opendir(installed_.c_str())) {
    if (!dir_) {
        report({.kind = event_kind::inventory_not_opened, .path = installed_, .error = errno});
    }
}

bool installed_walk::next() {
    while (const dirent *entry = next_entry(dir_)) {
        if (entry->d_type != DT_DIR) {
            log_debug("Omitting non-directory %s", entry->d_name);
        } else if (entry->d_name[0] != '.') {
            name_ = entry->d_name;
            info_.reset(read_entry(installed_, dirfd(dir_.get()), entry->d_name));
            return true;
        }
    }
    if (errno != 0) {
        report({.kind = event_kind::inventory_not_read, .path = installed_, .error = errno});
        broke_off_ = true;
    }
    return false;
}

void installed_walk::close() {
    if (closedir(dir_.release()) != 0) {
        report({.kind = event_kind::inventory_not_closed, .path = installed_, .error = errno});
    }
}

void log_passed_over(const char *name) {
    report({.kind = event_kind::entry_damaged, .package = name});
}

// A pattern that misses the name is tried on the description.
static own_ekva description_filter(const char *pattern) {
    s_ekva **filter = ekva_new(1, 4);
    ekva_addval(&filter, "evrkDescription", pattern, 4);
    return own_ekva(filter);
}

int vrm_list_vri(vrm_handle *handle, const char *pattern, int sort, vri ***out) {
    return guarded(0, [&]() -> int {
        growing_list<vri, vrm_vri_list_free> list(room_for_packages, log_list_room);
        const own_ekva filter = description_filter(pattern);
        installed_walk walk(handle);
        if (!walk.is_open() || !filter) {
            return 0;
        }
        while (walk.next()) {
            own_vri info = walk.take_info();
            if (!info) {
                log_passed_over(walk.name());
            } else if (!vrm_vri_match(info.get(), 2, pattern, nullptr, nullptr, 5, filter.get())) {
                log_debug("Local package %s does not match wildcard %s", walk.name(),
                          pattern ? pattern : "");
            } else if (list.add(info.get())) {
                info.release();
            } else {
                return 0;
            }
        }
        if (walk.broke_off()) {
            return 0;
        }
        const int count = list.count();
        log_debug("Found %d packages", count);
        if (sort && count > 1) {
            log_debug("Sorting packages");
            vrm_vri_list_sort(list.address());
        }
        walk.close();
        if (count > 0) {
            *out = list.release();
        }
        return count;
    });
}

char **vrm_list_arr(vrm_handle *handle, int sort) {
    return guarded(nullptr, [&]() -> char ** {
        growing_list<char, arr_free> names(room_for_packages, log_list_room);
        installed_walk walk(handle);
        if (!walk.is_open()) {
            return nullptr;
        }
        while (walk.next()) {
            const own_vri info = walk.take_info();
            if (!info) {
                log_debug("Failure parsing info for %s, skipping entry", walk.name());
                continue;
            }
            own_string name(strdup(info->name));
            if (!name || !names.add(name.get())) {
                log_debug("Failed to allocate space for %d entries", names.capacity());
                return nullptr;
            }
            name.release();
        }
        if (walk.broke_off()) {
            return nullptr;
        }
        walk.close();
        log_debug("Found %d packages", names.count());
        const int count = names.count();
        char **array = names.release();
        if (sort && count > 1) {
            std::stable_sort(array, array + count,
                             [](const char *a, const char *b) { return strcmp(a, b) < 0; });
        }
        return array;
    });
}

char **vrm_vrl_file_list(vrm_handle *handle, const vri *info) {
    return guarded(nullptr, [&]() -> char ** {
        const std::string path = directory_of(handle, "fileindex") + "/" + info->name;
        errno = ENOENT;
        const own_file index(is_entry_name(info->name) ? fopen_regular(path.c_str()) : nullptr);
        if (!index) {
            const int reason = errno == ENOENT ? 0 : errno;
            log_debug("vrm_vrl_file_list: %s contains no files", info->name);
            errno = reason;
            return nullptr;
        }
        growing_list<char, arr_free> files(room_for_files);
        char line[4095];
        while (fgets(line, sizeof line, index.get())) {
            line[strcspn(line, "\n")] = '\0';
            if (line[0] == '\0') {
                continue;
            }
            log_debug("vrm_vrl_file_list: Found %s", line);
            own_string file(strdup(line));
            if (!file || !files.add(file.get())) {
                errno = ENOMEM;
                return nullptr;
            }
            file.release();
        }
        if (ferror(index.get())) {
            // What came may end within a path, which then is another file's.
            const int reason = errno;
            report({.kind = event_kind::file_index_not_read, .path = path, .error = reason});
            errno = reason;
            return nullptr;
        }
        errno = 0;
        return files.release();
    });
}

char **vrm_vrl_index(vrm_handle *handle, const char *name) {
    const own_vri info(vrm_vrl_info(handle, name));
    return info ? vrm_vrl_file_list(handle, info.get()) : nullptr;
}
