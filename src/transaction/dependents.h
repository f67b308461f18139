// Who needs whom among the installed packages. Private to the library.
#pragma once

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "package/vri.h"
#include "repository/snapshot.h"

// The dependents that a removal looks at. The inventory is read once for every package, where a
// scan for each would read it as often as there are packages.
class dependents_index {
 public:
    // The inventory is that of the view's snapshot, or for a view of the tree one that is read now.
    explicit dependents_index(const installed_view &installed);
    dependents_index(const dependents_index &) = delete;
    dependents_index &operator=(const dependents_index &) = delete;

    // The first two packages of the directory's order that list the name among their dependencies.
    // They belong to the snapshot. The log has what a scan would meet on its way to the second.
    std::vector<const vri *> of(const char *name) const;

 private:
    void log_scan(size_t end) const;
    void log_unreadable() const;

    std::optional<inventory_snapshot> own_;
    inventory_snapshot *snapshot_;
};

// Who names whom as a dependency, in a list of packages.
class dependson_index {
 public:
    // `packages` is null-terminated, or null, and outlives the index.
    explicit dependson_index(vri *const *packages);

    // The packages that list exactly this name, in the order of the list, each once.
    const std::vector<const vri *> &of(const std::string &name) const;

 private:
    std::unordered_map<std::string, std::vector<const vri *>> dependents_;
};
