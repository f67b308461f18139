// Lists of installed packages for tests, as the inventory gives them.
#pragma once

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "pvrm/transactions.h"

// A package of the list; with a head it came as that one's dependency.
struct installed {
    std::string name;
    std::vector<std::string> deps = {};
    std::string head = {};
};

inline own_vri_list list_of(const std::vector<installed> &packages) {
    own_vri_list list(static_cast<vri **>(calloc(packages.size() + 1, sizeof(vri *))));
    for (size_t i = 0; i < packages.size(); i++) {
        vri *info = new_record({.name = packages[i].name, .deps = packages[i].deps});
        info->install_type = packages[i].head.empty() ? 'X' : 'D';
        info->install_head = packages[i].head.empty() ? nullptr : strdup(packages[i].head.c_str());
        list.get()[i] = info;
    }
    return list;
}
