#include "repository/left_links.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <map>
#include <string_view>

#include "package/fileops_lists.h"
#include "support/atomic_file.h"
#include "support/boundary.h"
#include "support/event.h"
#include "support/file.h"
#include "support/own.h"

namespace {

// By path, so that a link is noted once and a record is always in the same order.
using links_by_path = std::map<std::string, std::string>;

std::string directory_of_records(const vrm_handle *handle) {
    return std::string(handle->dir) + "/left_links";
}

bool can_be_noted(const std::string &text) {
    return !text.empty() && text.find_first_of("|\n") == std::string::npos;
}

bool parse_line(std::string_view line, left_link *link) {
    const size_t bar = line.find('|');
    if (bar == line.npos || !line.starts_with('/')) {
        return false;
    }
    link->path = line.substr(0, bar);
    link->target = line.substr(bar + 1);
    return can_be_noted(link->target);
}

// Writes the record beside the old one and moves it there. False with errno.
bool write_record(const vrm_handle *handle, const std::string &package,
                  const links_by_path &links) {
    const std::string directory = directory_of_records(handle);
    const std::string path = left_links_path(handle, package);
    if (links.empty()) {
        if (unlink(path.c_str()) != 0 && errno != ENOENT) {
            return false;
        }
        rmdir(directory.c_str());  // unless other packages have a record
        return true;
    }
    if (mkdir(directory.c_str(), 0755) != 0 && errno != EEXIST) {
        return false;
    }
    std::string text;
    for (const auto &[link, target] : links) {
        text.append(link).append("|").append(target).append("\n");
    }
    atomic_file file(path, directory + "/." + package + ".new");
    return file.is_open() && file.write(text) && file.commit(0644, durability::synced);
}

// The links of a list by where they are. A list that is missing has none.
bool read_places(const std::string &list, link_resolver *resolver, links_by_path *links) {
    std::vector<link_entry> entries;
    if (!read_link_list(list, &entries) && errno != ENOENT) {
        return false;
    }
    for (const link_entry &entry : entries) {
        const std::string place = resolver->place_of(entry);
        if (!place.empty()) {
            (*links)[place] = entry.target;
        }
    }
    return true;
}

// What is left after an update, or with an empty list after a removal. False with errno.
bool renew_record(const vrm_handle *handle, const std::string &package,
                  const links_by_path &of_old_version, const links_by_path &of_new_version) {
    std::vector<left_link> noted;
    const bool well_formed = read_left_links(handle, package, &noted);
    if (!well_formed && errno != EINVAL) {
        return false;
    }
    // What is not of the form is dropped with the new record.
    const bool had_record = !well_formed || !noted.empty();
    for (const auto &[path, target] : of_old_version) {
        noted.push_back({path, target});
    }
    links_by_path left;
    for (const left_link &link : noted) {
        if (!of_new_version.contains(link.path) && can_be_noted(link.path) &&
            can_be_noted(link.target) && is_in_place(link)) {
            left[link.path] = link.target;
        }
    }
    return (!had_record && left.empty()) || write_record(handle, package, left);
}

// Warns, with errno as the reason.
void warn_of(const vrm_handle *handle, const std::string &package) {
    report({.kind = event_kind::left_links_not_noted,
            .package = package,
            .path = left_links_path(handle, package),
            .error = errno});
}

}  // namespace

std::string left_links_path(const vrm_handle *handle, const std::string &package) {
    return directory_of_records(handle) + "/" + package;
}

bool read_left_links(const vrm_handle *handle, const std::string &package,
                     std::vector<left_link> *links) {
    size_t size = 0;
    const own_string record(_read_file(left_links_path(handle, package).c_str(), &size));
    if (!record) {
        return errno == ENOENT;
    }
    bool well_formed = true;
    for (std::string_view rest(record.get(), size); !rest.empty();) {
        const size_t end = rest.find('\n');
        left_link link;
        if (end != rest.npos && parse_line(rest.substr(0, end), &link)) {
            links->push_back(std::move(link));
        } else {
            well_formed = false;
        }
        rest.remove_prefix(std::min(end, rest.size() - 1) + 1);
    }
    errno = EINVAL;
    return well_formed;
}

bool packages_with_left_links(const vrm_handle *handle, std::vector<std::string> *packages) {
    const own_dir directory(opendir(directory_of_records(handle).c_str()));
    if (!directory) {
        return errno == ENOENT;
    }
    while (const dirent *entry = next_entry(directory)) {
        if (entry->d_name[0] != '.') {
            packages->emplace_back(entry->d_name);
        }
    }
    std::sort(packages->begin(), packages->end());
    return errno == 0;
}

bool is_in_place(const left_link &link) {
    std::array<char, PATH_MAX> text;
    const ssize_t length = readlink(link.path.c_str(), text.data(), text.size());
    if (length < 0) {
        // What is not a link is EINVAL.
        errno = errno == ENOENT || errno == ENOTDIR || errno == EINVAL ? 0 : errno;
        return false;
    }
    errno = 0;
    return std::string_view(text.data(), static_cast<size_t>(length)) == link.target;
}

void note_left_links(const vrm_handle *handle, const std::string &package,
                     const std::string &old_list, const std::string &new_list) {
    guarded([] { report({.kind = event_kind::memory_short, .who = "left_links"}); },
            [&] {
                link_resolver resolver;
                links_by_path before, now;
                if (!read_places(old_list, &resolver, &before) ||
                    !read_places(new_list, &resolver, &now) ||
                    !renew_record(handle, package, before, now)) {
                    warn_of(handle, package);
                }
            });
}

void note_removed_links(const vrm_handle *handle, const std::string &package) {
    guarded([] { report({.kind = event_kind::memory_short, .who = "left_links"}); },
            [&] {
                if (!renew_record(handle, package, {}, {})) {
                    warn_of(handle, package);
                }
            });
}
