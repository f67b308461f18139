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

#include "maintenance/place_audit.h"
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
    explicit consistency_audit(vrm_handle *handle) : handle_(handle), places_(handle) {}

    // False when the audit can't come to its end.
    bool read_inventory(installed_walk *walk);
    bool audit();

    int findings() const {
        return findings_;
    }

 private:
    void finding(const event &found) {
        findings_++;
        report(found);
    }
    bool is_installed(const std::string &name) const {
        return own_vri(vrm_vrl_own_info(handle_, name.c_str())) != nullptr;
    }
    std::string path_in(const char *role, const std::string &name) const {
        return std::string(ekva_getval(handle_->dirs, role)) + "/" + name;
    }
    // Whether something that was found is so, and not half of what another process is changing at
    // this moment. `still_so` looks at the disk again.
    template <typename Look>
    bool is_settled(Look still_so) const {
        const auto is_quiet = [this] { return vrm_lock_holder(handle_) <= 0; };
        return handle_->locked || (is_quiet() && still_so() && is_quiet());
    }
    void read_indexes();
    void audit_dependencies(const std::string &package, const std::vector<std::string> &needed);
    void audit_index_of(const std::string &package);
    void audit_indexes();
    void audit_left_links();
    void audit_left_links_of(const std::string &package);

    vrm_handle *handle_;
    place_audit places_;
    // The valid entries with their dependencies, and the others.
    std::map<std::string, std::vector<std::string>> packages_;
    std::set<std::string> damaged_;
    std::optional<std::set<std::string>> indexes_;
    int findings_ = 0;
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
        if (is_settled([&] { return is_installed(package) && !is_installed(name); })) {
            finding({.kind = damaged_.contains(name) ? event_kind::dependency_entry_damaged
                                                     : event_kind::dependency_missing,
                     .package = package,
                     .other = name});
        }
    }
}

void consistency_audit::audit_index_of(const std::string &package) {
    if (!indexes_ || indexes_->contains(package)) {
        return;
    }
    const std::string entry = path_in("installed", package);
    s_ekva **list = nullptr;
    const bool unreadable = vrm_vrf_vrk_hashes(entry.c_str(), "data", &list) != 0;
    const own_ekva hashes(list);
    const int files = hashes ? ekva_nument(list) : 0;
    const std::string index = path_in("fileindex", package);
    if ((unreadable || files > 0) &&
        is_settled([&] { return is_installed(package) && !is_of_kind(index, S_IFREG); })) {
        finding({.kind = event_kind::entry_without_index,
                 .package = package,
                 .path = entry,
                 .number = files});
    }
}

void consistency_audit::audit_indexes() {
    for (const std::string &name : indexes_ ? *indexes_ : std::set<std::string>()) {
        const std::string entry = path_in("installed", name);
        if (!packages_.contains(name) && !damaged_.contains(name) &&
            is_settled([&] { return !is_of_kind(entry, S_IFDIR); })) {
            finding({.kind = event_kind::index_without_entry,
                     .package = name,
                     .path = path_in("fileindex", name)});
        }
    }
}

void consistency_audit::audit_left_links_of(const std::string &package) {
    std::vector<left_link> links;
    if (!read_left_links(handle_, package, &links)) {
        finding({.kind = event_kind::list_not_compared,
                 .package = package,
                 .path = left_links_path(handle_, package),
                 .error = errno});
    }
    const bool installed = packages_.contains(package) || damaged_.contains(package);
    for (const left_link &link : links) {
        if (places_.lists(link.path)) {
            continue;
        }
        if (is_in_place(link)) {
            finding({.kind = installed ? event_kind::link_left : event_kind::link_left_by_removed,
                     .package = package,
                     .path = link.path,
                     .other = link.target});
        } else if (errno != 0) {
            finding({.kind = event_kind::place_not_seen,
                     .package = package,
                     .path = link.path,
                     .error = errno});
        }
    }
}

void consistency_audit::audit_left_links() {
    std::vector<std::string> names;
    if (!packages_with_left_links(handle_, &names)) {
        finding({.kind = event_kind::list_not_compared,
                 .package = "the inventory",
                 .path = left_links_path(handle_, ""),
                 .error = errno});
    }
    for (const std::string &name : names) {
        audit_left_links_of(name);
    }
}

bool consistency_audit::audit() {
    for (const auto &[package, needed] : packages_) {
        if (vrm_stop_requested) {
            return false;
        }
        audit_dependencies(package, needed);
        audit_index_of(package);
        findings_ += places_.compare(package);
    }
    for (const std::string &entry : damaged_) {
        places_.remember_links(entry);
    }
    audit_indexes();
    audit_left_links();
    return true;
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
    return guarded("vrm_chkplaces", -1,
                   [&]() -> int { return place_audit(handle).compare_with_files(name); });
}
