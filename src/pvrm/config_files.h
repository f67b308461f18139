// The configuration files of installed packages. No index lists them, as they are the
// administrator's; what tells which there are is the copies that the inventory keeps.
#pragma once

#include <string>
#include <vector>

#include "support/handle.h"

// Where the inventory keeps the shipped copies of a package, each at its own path below it.
std::string shipped_config_dir(const vrm_handle *repository, const char *package);

// The paths of those that stand on the machine, links too, in order.
std::vector<std::string> config_files(const vrm_handle *repository, const char *package);

// Whether one of them is no more what its shipped copy is. What can't be compared passes for
// edited.
bool is_edited(const vrm_handle *repository, const char *package, const std::string &path);

// What a removal leaves of a package's configuration: gathered ahead of it, as the copies go with
// the package, and told when it is done.
struct kept_config {
    std::string path;
    bool edited;
};
std::vector<kept_config> config_to_keep(const vrm_handle *repository, const char *package);

// What somebody edited is their work: of that they are told even when they asked for quiet.
void tell_kept(const std::vector<kept_config> &files);
