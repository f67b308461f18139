#include "maintenance/consistency_audit.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "maintenance/hash_audit.h"
#include "maintenance/place_audit.h"
#include "maintenance/settled_findings.h"
#include "package/hashlist.h"
#include "repository/inventory.h"
#include "repository/left_links.h"
#include "repository/repository.h"
#include "support/array.h"
#include "support/boundary.h"
#include "support/ekva.h"
#include "support/event.h"
#include "support/own.h"
#include "transaction/interrupt.h"

namespace {

bool is_of_kind(const std::string &path, mode_t kind) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0 && (status.st_mode & S_IFMT) == kind;
}

class consistency_audit {
 public:
    explicit consistency_audit(vrm_handle *handle)
        : handle_(handle), modes_(handle), places_(handle, &modes_), found_(handle) {}

    // False when the audit can't come to its end.
    bool read_inventory(installed_walk *walk);
    bool audit();

    int findings() const {
        return found_.count();
    }

 private:
    bool is_installed(const std::string &name) const {
        return own_vri(vrm_vrl_own_info(handle_, name.c_str())) != nullptr;
    }
    std::string path_in(const char *role, const std::string &name) const {
        return std::string(ekva_getval(handle_->dirs, role)) + "/" + name;
    }
    void read_indexes();
    void audit_dependencies(const std::string &package, const std::vector<std::string> &needed);
    void audit_index_of(const std::string &package);
    void audit_indexes();
    finding_list left_links(const place_audit &places) const;
    void left_links_of(const std::string &package, const place_audit &places,
                       finding_list *found) const;

    vrm_handle *handle_;
    listed_modes modes_;
    place_audit places_;
    // The valid entries with their dependencies, and the others.
    std::map<std::string, std::vector<std::string>> packages_;
    std::set<std::string> damaged_;
    std::optional<std::set<std::string>> indexes_;
    settled_findings found_;
};

bool consistency_audit::read_inventory(installed_walk *walk) {
    while (walk->next()) {
        if (vrm_stop_requested) {
            return false;
        }
        const own_vri info = walk->take_info();
        if (!info || strcmp(info->name, walk->name()) != 0) {
            damaged_.emplace(walk->name());
            continue;
        }
        std::vector<std::string> &needed = packages_[walk->name()];
        for (char *const *name = info->deps; name && *name; name++) {
            needed.emplace_back(*name);
        }
    }
    read_indexes();
    return !walk->broke_off();
}

// As an index counts what the lookup of owners reads: a regular file.
void consistency_audit::read_indexes() {
    const std::string path = ekva_getval(handle_->dirs, "fileindex");
    const own_dir directory(opendir(path.c_str()));
    std::set<std::string> names;
    while (const dirent *entry = directory ? next_entry(directory) : nullptr) {
        if (entry->d_type == DT_REG && entry->d_name[0] != '.') {
            names.emplace(entry->d_name);
        }
    }
    if (errno != 0) {
        report({.kind = event_kind::owner_index_not_read, .path = path, .error = errno});
        return;
    }
    indexes_ = std::move(names);
}

void consistency_audit::audit_dependencies(const std::string &package,
                                           const std::vector<std::string> &needed) {
    std::set<std::string> missing;  // a package may list a name twice
    for (const std::string &name : needed) {
        if (packages_.contains(name) || !missing.insert(name).second) {
            continue;
        }
        found_.add_if({.kind = damaged_.contains(name) ? event_kind::dependency_entry_damaged
                                                       : event_kind::dependency_missing,
                       .package = package,
                       .other = name},
                      [&] { return is_installed(package) && !is_installed(name); });
    }
}

void consistency_audit::audit_index_of(const std::string &package) {
    if (!indexes_ || indexes_->contains(package)) {
        return;
    }
    const std::string entry = path_in("installed", package);
    const std::string index = path_in("fileindex", package);
    const auto still_so = [&] { return is_installed(package) && !is_of_kind(index, S_IFREG); };
    s_ekva **list = nullptr;
    const int rc = vrm_vrf_vrk_hashes(entry.c_str(), "data", &list);
    const own_ekva hashes(list);
    const std::string hash_list = entry + "/hash/data.txt";
    // Of a list that is malformed the reader has reported what is wrong with it.
    if (rc != 0 || (!hashes && is_there_unreadable(hash_list))) {
        found_.add_if({.kind = event_kind::list_not_compared,
                       .package = package,
                       .path = hash_list,
                       .error = rc != 0 ? EINVAL : errno},
                      still_so);
    } else if (const int files = hashes ? ekva_nument(list) : 0) {
        found_.add_if({.kind = event_kind::entry_without_index,
                       .package = package,
                       .path = entry,
                       .number = files},
                      still_so);
    }
}

void consistency_audit::audit_indexes() {
    for (const std::string &name : indexes_ ? *indexes_ : std::set<std::string>()) {
        const std::string entry = path_in("installed", name);
        if (!packages_.contains(name) && !damaged_.contains(name)) {
            found_.add_if({.kind = event_kind::index_without_entry,
                           .package = name,
                           .path = path_in("fileindex", name)},
                          [&] { return !is_of_kind(entry, S_IFDIR); });
        }
    }
}

void consistency_audit::left_links_of(const std::string &package, const place_audit &places,
                                      finding_list *found) const {
    const auto add = [&](const event &one) { found->emplace_back(one); };
    std::vector<left_link> links;
    if (!read_left_links(handle_, package, &links)) {
        add({.kind = event_kind::list_not_compared,
             .package = package,
             .path = left_links_path(handle_, package),
             .error = errno});
    }
    const bool installed = is_of_kind(path_in("installed", package), S_IFDIR);
    for (const left_link &link : links) {
        if (vrm_stop_requested) {
            return;
        }
        if (places.lists(link.path)) {
            continue;
        }
        if (is_in_place(link)) {
            add({.kind = installed ? event_kind::link_left : event_kind::link_left_by_removed,
                 .package = package,
                 .path = link.path,
                 .other = link.target});
        } else if (errno != 0) {
            add({.kind = event_kind::place_not_seen,
                 .package = package,
                 .path = link.path,
                 .error = errno});
        }
    }
}

finding_list consistency_audit::left_links(const place_audit &places) const {
    finding_list found;
    std::vector<std::string> names;
    if (!packages_with_left_links(handle_, &names)) {
        found.emplace_back(event{.kind = event_kind::list_not_compared,
                                 .package = "the inventory",
                                 .path = left_links_path(handle_, ""),
                                 .error = errno});
    }
    for (const std::string &name : names) {
        left_links_of(name, places, &found);
    }
    return found;
}

bool consistency_audit::audit() {
    for (const auto &entry : packages_) {
        const std::string &package = entry.first;
        if (vrm_stop_requested) {
            return false;
        }
        audit_dependencies(package, entry.second);
        audit_index_of(package);
        found_.add(places_.compare(package),
                   [&] { return place_audit(handle_, &modes_).compare(package); });
    }
    for (const std::string &entry : damaged_) {
        places_.remember_links(entry);
    }
    audit_indexes();
    found_.add(left_links(places_), [&] {
        place_audit now(handle_, &modes_);
        installed_walk walk(handle_);
        while (walk.is_open() && walk.next()) {
            now.remember_links(walk.name());
        }
        return left_links(now);
    });
    found_.end("dependencies, indexes, links and permissions");
    return !vrm_stop_requested;
}

}  // namespace

int vrm_chkconsistency(vrm_handle *handle) {
    return guarded("vrm_chkconsistency", -1, [&]() -> int {
        installed_walk walk(handle);
        if (!walk.is_open()) {
            return 0;
        }
        consistency_audit audit(handle);
        return audit.read_inventory(&walk) && audit.audit() ? audit.findings() : -1;
    });
}

int vrm_chkplaces(vrm_handle *handle, const char *name) {
    return guarded("vrm_chkplaces", -1, [&]() -> int {
        const auto look = [&] {
            const listed_modes modes(handle);
            return place_audit(handle, &modes).compare_with_files(name);
        };
        settled_findings found(handle);
        found.add(look(), look);
        found.end(std::string("the links and permissions of ") + name);
        return vrm_stop_requested ? -1 : found.count();
    });
}
