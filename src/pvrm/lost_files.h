// What an upgrade that fails can cost: its rollback removes all that it was to write, also files of
// the old version that it had not come to, of which there is no backup.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "repository/snapshot.h"
#include "support/own.h"

class lost_files {
 public:
    // Notes which files of these installed packages are there before they are changed.
    lost_files(inventory_snapshot &installed, const std::vector<std::string> &packages);

    // Tells which of them are missing now although their package still lists them, and what helps.
    // The snapshot has to have forgotten the packages.
    void tell() const;

 private:
    void tell_of(const std::string &package, const std::vector<std::string> &lost) const;

    own_array index_of(const std::string &package) const;

    inventory_snapshot &installed_;
    std::map<std::string, std::vector<std::string>> present_;  // by package, sorted
};
