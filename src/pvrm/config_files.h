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
