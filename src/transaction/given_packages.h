// Packages that a planner takes into account beside the inventory, the directories and the
// catalogue, for a caller who plans several requests of one command.
#pragma once

#include <string>
#include <unordered_map>

#include "package/vri.h"

// Both are by name, and the records belong to the caller. What this machine can't run plays no
// part.
struct given_packages {
    // Are installed before what is being planned: as a dependency they count as installed.
    std::unordered_map<std::string, const vri *> coming = {};
    // Package files, with their absolute_uri: as a dependency they are taken ahead of the
    // directories and the catalogue.
    std::unordered_map<std::string, const vri *> files = {};
};

// As long as one of these exists, vrm_get_dependency and all that plans by it know the packages.
// They don't nest.
class planning_with {
 public:
    explicit planning_with(const given_packages &given);
    ~planning_with();
    planning_with(const planning_with &) = delete;
    planning_with &operator=(const planning_with &) = delete;
};
