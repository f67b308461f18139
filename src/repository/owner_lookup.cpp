#include "repository/owner_lookup.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>

#include "package/fileops_lists.h"
#include "support/boundary.h"
#include "support/event.h"
#include "support/file.h"
#include "support/log.h"

static constexpr size_t longest_line = 4096;

void unread_index::report() const {
    ::report({.kind = kind, .path = path, .error = error});
}

// The path as the indexes would spell it; null with the reason on the log.
static own_string path_to_search(const char *path) {
    struct stat status;
    if (lstat(path, &status) != 0) {
        report({.kind = event_kind::owner_path_not_found, .path = path, .error = errno});
        return nullptr;
    }
    if (!S_ISLNK(status.st_mode)) {
        return own_string(strdup(path));
    }
    own_string target(realpath(path, nullptr));
    if (!target) {
        report({.kind = event_kind::owner_link_unresolved, .path = path});
        return nullptr;
    }
    report({.kind = event_kind::owner_link_resolved, .path = path, .other = target.get()});
    return target;
}

// Reads an open file to its end into the buffer, which keeps its size from one file to the next.
// The result is what was read, or nothing when it can't be read to its end.
static std::optional<std::string_view> read_whole(int fd, std::vector<char> &buffer) {
    size_t length = 0;
    for (;;) {
        if (length == buffer.size()) {
            buffer.resize(buffer.size() * 2);
        }
        const ssize_t got = read_some(fd, buffer.data() + length, buffer.size() - length);
        if (got < 0) {
            return std::nullopt;
        }
        if (got == 0) {
            return std::string_view(buffer.data(), length);
        }
        length += static_cast<size_t>(got);
    }
}

// Calls `visit` with each path of an index until it gives false; the result is false then. A line
// counts in pieces of 4096 characters, each one a path of its own; as a path is shorter than that,
// only the last piece of a line can be one.
template <typename Visit>
static bool each_path(std::string_view index, Visit visit) {
    while (!index.empty()) {
        const size_t length = std::min(index.find('\n'), index.size());
        const size_t last_piece = length % longest_line;
        if (!visit(index.substr(length - last_piece, last_piece))) {
            return false;
        }
        index.remove_prefix(std::min(length + 1, index.size()));
    }
    return true;
}

// Calls `visit` with the name and the content of each file index, in the directory's order, until
// it gives false, and `complain` with what can't be opened or read.
template <typename Visit, typename Complain>
static void walk_indexes(const vrm_handle *handle, Visit visit, Complain complain) {
    const char *role = ekva_getval(handle->dirs, "fileindex");
    const std::string fileindex = role ? role : "";
    const auto not_opened = [](const std::string &path) {
        return unread_index{event_kind::owner_index_not_opened, path, errno};
    };
    const auto not_read = [](const std::string &path) {
        return unread_index{event_kind::owner_index_not_read, path, errno};
    };
    const own_dir dir(opendir(fileindex.c_str()));
    if (!dir) {
        complain(not_opened(fileindex));
        return;
    }
    std::vector<char> buffer(size_t{1} << 16);
    while (const dirent *entry = next_entry(dir)) {
        const char *name = entry->d_name;
        if (entry->d_type != DT_REG) {
            log_debug("Omitting non-file %s", name);
            continue;
        }
        if (name[0] == '.') {
            log_debug("Omitting backup file %s", name);
            continue;
        }
        const own_fd file(openat(dirfd(dir.get()), name, O_RDONLY | O_CLOEXEC));
        if (!file.valid()) {
            complain(not_opened(name));
            continue;
        }
        log_debug("Checking in <%s>", name);
        const std::optional<std::string_view> index = read_whole(file.get(), buffer);
        if (!index) {
            complain(not_read(name));
        } else if (!visit(name, *index)) {
            return;
        }
    }
    if (errno != 0) {
        complain(not_read(fileindex));
    }
}

char *vrm_file_owner(vrm_handle *handle, const char *path) {
    return guarded(nullptr, [&]() -> char * {
        const own_string wanted = path_to_search(path);
        if (!wanted) {
            return nullptr;
        }
        const std::string_view searched = wanted.get();
        char *owner = nullptr;
        walk_indexes(
            handle,
            [&](const char *name, std::string_view index) {
                if (each_path(index, [&](std::string_view listed) { return listed != searched; })) {
                    return true;
                }
                log_debug("Found <%s> in <%s>", wanted.get(), name);
                owner = strdup(name);
                return false;
            },
            [](const unread_index &index) { index.report(); });
        return owner;
    });
}

void owner_lookup::read_indexes() {
    read_ = true;
    walk_indexes(
        handle_,
        [this](const char *name, std::string_view index) {
            each_path(index, [this](std::string_view path) {
                place_of_path_.emplace(path, names_.size());  // unless an earlier index lists it
                return true;
            });
            names_.emplace_back(name);
            return true;
        },
        [this](unread_index index) { unread_.emplace_back(names_.size(), std::move(index)); });
}

own_string owner_lookup::owner(const char *path) {
    if (log_wants(LEVEL_DEBUG)) {
        return own_string(vrm_file_owner(handle_, path));  // which tells each index it looks into
    }
    const own_string wanted = path_to_search(path);
    if (!wanted) {
        return nullptr;
    }
    if (!read_) {
        read_indexes();
    }
    const auto found = place_of_path_.find(wanted.get());
    const size_t place = found == place_of_path_.end() ? names_.size() : found->second;
    for (const auto &[before, index] : unread_) {
        if (before <= place) {
            index.report();
        }
    }
    return own_string(place < names_.size() ? strdup(names_[place].c_str()) : nullptr);
}

static std::string_view last_component(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

std::unordered_map<std::string, std::string> owners_of_places(
    const vrm_handle *handle, const std::unordered_set<std::string> &places) {
    std::unordered_map<std::string, std::string> owners;
    if (places.empty()) {
        return owners;
    }
    // To find out where a path leads costs more than all else, so it is done for few of them.
    std::unordered_set<std::string_view> wanted;
    for (const std::string &place : places) {
        wanted.insert(last_component(place));
    }
    link_resolver resolver;
    walk_indexes(
        handle,
        [&](const char *name, std::string_view index) {
            each_path(index, [&](std::string_view path) {
                if (wanted.contains(last_component(path))) {
                    const std::string place = resolver.place_of(std::string(path));
                    if (places.contains(place)) {
                        owners.emplace(place, name);
                    }
                }
                return true;
            });
            return true;
        },
        [](const unread_index &index) { index.report(); });
    return owners;
}
