// Who needs whom among the installed packages. Private to the library.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "package/vri.h"
#include "support/handle.h"

// One reading of the inventory answers the question for every package, where a scan for each would
// read it as often as there are packages. It costs the memory of all records, and the answers are
// those of the moment when it was made.
class dependents_index {
 public:
    explicit dependents_index(vrm_handle *handle);

    // The first two packages of the directory's order that list the name among their dependencies.
    // They belong to the index. The log is told what a scan would meet on its way to the second.
    std::vector<const vri *> of(const char *name) const;

 private:
    struct entry {
        std::string name;
        bool is_directory;
        own_vri info;  // null for what is no package
    };
    void log_scan(size_t end) const;
    void log_unreadable() const;

    std::string dir_;
    int open_error_ = 0;   // errno of the attempt to open the directory
    int close_error_ = 0;  // and of that to close it
    std::vector<entry> entries_;
    std::unordered_map<std::string, std::vector<size_t>> dependents_;  // two places at most
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
