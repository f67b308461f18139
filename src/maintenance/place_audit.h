// Private to the maintenance: the links and permissions of installed packages beside the packages'
// own lists, link.txt and perm.txt (package/fileops.h).
//
// Each difference is a finding, an event of the level 0 that is not reported here; nothing is
// repaired. A list is compared as it is
// applied: of two lines for the same place the last one counts, a permission is that of what a link
// points at, and no link is expected where the package itself brings a file. Where several packages
// list a path, the permissions of any of them are right. A configuration file
// may have fewer permissions than its list gives it, as an administrator may restrict it, but not
// more. Owners are in no list, and the modes of other files are not either: of these, only a file
// that everybody may write to is known to be wrong.
#pragma once

#include <map>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "maintenance/settled_findings.h"
#include "package/fileops_lists.h"
#include "support/handle.h"

// The modes in the permission lists of all installed packages, read at the first question.
class listed_modes {
 public:
    // The handle must outlive the object.
    explicit listed_modes(vrm_handle *handle) : handle_(handle) {}

    // Whether another entry than the named one lists the path, as it is spelled, with this mode.
    bool is_listed_elsewhere(const std::string &entry, const std::string &path, mode_t mode) const;

 private:
    vrm_handle *handle_;
    mutable bool was_read_ = false;
    // By path and entry.
    mutable std::unordered_map<std::string, std::map<std::string, mode_t>> by_path_;
};

// A request to stop (transaction/interrupt.h) ends a comparison early.
class place_audit {
 public:
    // The handle and the modes must outlive the audit.
    place_audit(vrm_handle *handle, const listed_modes *modes) : handle_(handle), modes_(modes) {}

    // Compares the links and the permissions of an entry of the inventory. Result: the
    // differences.
    finding_list compare(const std::string &entry) {
        return compare(entry, false);
    }

    // The same, and looks for files in the package's index that everybody may write to. A listed
    // file that is missing is not a difference when the hash audit reports it.
    finding_list compare_with_files(const std::string &entry) {
        return compare(entry, true);
    }

    // Only remembers the links of an entry that is not compared.
    void remember_links(const std::string &entry);

    // Whether an entry that was compared or remembered lists a link at a place, an absolute path
    // whose directory is spelled without links.
    bool lists(const std::string &place) const {
        return places_.contains(place);
    }

 private:
    using target_by_place = std::map<std::string, std::string>;

    finding_list compare(const std::string &entry, bool with_files);
    // Reads the link list of an entry and remembers its places.
    bool read_links(const std::string &list, target_by_place *links,
                    std::vector<refused_line> *refused);

    vrm_handle *handle_;
    const listed_modes *modes_;
    link_resolver resolver_;
    std::unordered_set<std::string> places_;
};
