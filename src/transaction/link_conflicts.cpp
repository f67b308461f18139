#include "transaction/link_conflicts.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <unordered_map>

#include "package/fileops_lists.h"
#include "repository/left_links.h"
#include "repository/owner_lookup.h"
#include "support/event.h"
#include "support/file.h"
#include "transaction/change.h"

namespace {

struct listed_link {
    std::string package, target;
};
using links_of_others = std::unordered_map<std::string, std::vector<listed_link>>;

bool cannot_read(const char *who, const std::string &path) {
    report({.kind = event_kind::links_not_known, .who = who, .path = path, .error = errno});
    return false;
}

// Of a place that a list has twice the last line counts, as it does on the disk.
bool read_targets(const std::string &list, link_resolver *resolver, link_targets *targets) {
    std::vector<link_entry> entries;
    if (!read_link_list(list, &entries)) {
        return false;
    }
    for (link_entry &entry : entries) {
        const std::string place = resolver->place_of(entry);
        if (!place.empty()) {
            (*targets)[place] = std::move(entry.target);
        }
    }
    return true;
}

// Whether there is a list that could be applied.
bool has_list(const std::string &path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 ? S_ISREG(status.st_mode) : !is_missing(path.c_str());
}

// The packages of the inventory but one, sorted. An entry that is damaged counts, as its links are
// on the disk. False with errno.
bool other_packages(const std::string &installed, const char *own_name,
                    std::vector<std::string> *names) {
    const own_dir dir(opendir(installed.c_str()));
    if (!dir) {
        return false;
    }
    errno = 0;
    while (const dirent *entry = readdir(dir.get())) {
        if (entry->d_name[0] != '.' && entry->d_type != DT_LNK &&
            strcmp(entry->d_name, own_name) != 0) {
            names->emplace_back(entry->d_name);
        }
        errno = 0;
    }
    std::sort(names->begin(), names->end());
    return errno == 0;
}

// Which of the links of `own` other packages list. Reads the list of each package once.
bool read_links_of_others(const change &change, const link_targets &own, link_resolver *resolver,
                          links_of_others *others) {
    const char *who = change.by->who;
    const std::string installed = dir_of(change.handle, "installed");
    std::vector<std::string> names;
    if (!other_packages(installed, change.package()->name, &names)) {
        return cannot_read(who, installed);
    }
    for (const std::string &name : names) {
        std::string list = installed;
        list.append("/").append(name).append("/link.txt");
        link_targets targets;
        if (!has_list(list)) {
            continue;
        }
        if (!read_targets(list, resolver, &targets)) {
            return cannot_read(who, list);
        }
        for (auto &[place, target] : targets) {
            if (own.contains(place)) {
                (*others)[place].push_back({name, std::move(target)});
            }
        }
    }
    return true;
}

bool conflicts_with(const char *who, const std::string &place, const std::string &target,
                    const std::vector<listed_link> &others) {
    for (const listed_link &other : others) {
        if (other.target != target) {
            report({.kind = event_kind::link_listed_otherwise,
                    .who = who,
                    .package = other.package,
                    .path = place,
                    .other = target,
                    .found = other.target});
            return true;
        }
    }
    return false;
}

// What lies at a place: S_IFLNK, S_IFREG and so on, 0 for nothing. A name that nothing can have is
// left to the attempt to make the link. False with errno.
bool kind_of(const std::string &place, mode_t *kind) {
    struct stat status = {};
    const bool seen = lstat(place.c_str(), &status) == 0;
    *kind = status.st_mode & S_IFMT;
    return seen || errno == ENOENT || errno == ENOTDIR || errno == ENAMETOOLONG || errno == ELOOP;
}

// Where the package itself brings a file no link is made.
void leave_own_files(const own_array &data, link_resolver *resolver,
                     std::map<std::string, mode_t> *in_the_way, settled_links *links) {
    for (char *const *path = data.get(); path && *path && !in_the_way->empty(); path++) {
        const std::string place = resolver->place_of(*path);
        if (links->places.erase(place) > 0) {
            in_the_way->erase(place);
        }
    }
}

// Sorts out whose the files and links in the places of links are.
bool settle_owners(const change &change, const link_targets &own,
                   const std::map<std::string, mode_t> &in_the_way, settled_links *links) {
    std::unordered_set<std::string> places;
    for (const auto &[place, kind] : in_the_way) {
        places.insert(place);
    }
    const auto owners = owners_of_places(change.handle, places);
    for (const auto &[place, kind] : in_the_way) {
        const auto owner = owners.find(place);
        if (owner == owners.end()) {
            links->unowned.push_back(place);
            if (S_ISREG(kind)) {
                links->files.push_back(place);
            }
        } else if (!change.old_package || owner->second != change.old_package->name) {
            report({.kind = event_kind::link_over_owned_file,
                    .who = change.by->who,
                    .package = owner->second,
                    .path = place,
                    .other = own.at(place)});
            return false;
        }
    }
    return true;
}

}  // namespace

bool read_new_links(const change &change, link_resolver *resolver, link_targets *links) {
    const std::string list = change.stage.fresh + "/info/link.txt";
    return !fork_has(change.forks.info, "/link.txt") || read_targets(list, resolver, links) ||
           cannot_read(change.by->who, list);
}

// Those that the old side lists.
static bool read_old_links(const change &change, link_resolver *resolver, link_targets *links) {
    if (!change.old_package) {
        return true;
    }
    const std::string list =
        dir_of(change.handle, "installed") + "/" + change.old_package->name + "/link.txt";
    return !has_list(list) || read_targets(list, resolver, links) ||
           cannot_read(change.by->who, list);
}

bool read_links_in_place(const change &change, link_resolver *resolver, link_targets *links) {
    if (!read_old_links(change, resolver, links)) {
        return false;
    }
    std::erase_if(*links, [](const auto &link) { return !is_in_place({link.first, link.second}); });
    return true;
}

bool no_other_lists(const change &change, const link_targets &links, link_resolver *resolver) {
    links_of_others others;
    if (!read_links_of_others(change, links, resolver, &others)) {
        return false;
    }
    for (const auto &[place, target] : links) {
        if (const auto listed = others.find(place); listed != others.end()) {
            report({.kind = event_kind::update_file_owned_by_another,
                    .package = listed->second.front().package,
                    .path = place});
            return false;
        }
    }
    return true;
}

bool settle_links(const change &change, settled_links *links) {
    const char *who = change.by->who;
    if (!fork_has(change.forks.info, "/link.txt")) {
        return true;
    }
    link_resolver resolver(change.kinds.links);
    link_targets own, before;
    if (!read_new_links(change, &resolver, &own) || !read_old_links(change, &resolver, &before)) {
        return false;
    }
    links_of_others others;
    if (!read_links_of_others(change, own, &resolver, &others)) {
        return false;
    }

    std::map<std::string, mode_t> in_the_way;
    for (const auto &[place, target] : own) {
        links->places.insert(place);
        const auto listed = others.find(place);
        if (listed != others.end() && conflicts_with(who, place, target, listed->second)) {
            return false;
        }
        mode_t kind;
        if (!kind_of(place, &kind)) {
            return cannot_read(who, place);
        }
        const bool is_listed = listed != others.end() || before.contains(place);
        if (S_ISREG(kind) || (S_ISLNK(kind) && !is_listed)) {
            in_the_way[place] = kind;
        }
    }
    leave_own_files(change.forks.data, &resolver, &in_the_way, links);
    return settle_owners(change, own, in_the_way, links);
}

int make_links(const std::string &list, const settled_links &links) {
    for (const std::string &file : links.files) {
        // What comes of it shows when the link is made.
        unlink(file.c_str());
    }
    link_resolver resolver;
    return apply_link_list(list.c_str(), true, true, [&](const link_entry &entry) {
        return links.places.contains(resolver.place_of(entry));
    });
}

bool find_shared_links(const change &change, std::unordered_set<std::string> *shared) {
    const char *who = change.by->who;
    const std::string list = change.places.entry + "/link.txt";
    if (!has_list(list)) {
        return true;
    }
    link_resolver resolver;
    link_targets own;
    if (!read_targets(list, &resolver, &own)) {
        return cannot_read(who, list);
    }
    links_of_others others;
    if (!read_links_of_others(change, own, &resolver, &others)) {
        return false;
    }
    for (const auto &[place, listed] : others) {
        shared->insert(place);
    }
    return true;
}

int remove_links(const std::string &list, const std::unordered_set<std::string> &shared) {
    link_resolver resolver;
    return apply_link_list(list.c_str(), true, false, [&](const link_entry &entry) {
        const std::string place = resolver.place_of(entry);
        std::error_code failed;
        const auto target = std::filesystem::read_symlink(place, failed);
        // What is not a link is left to the list.
        return failed || (target.native() == entry.target && !shared.contains(place));
    });
}
