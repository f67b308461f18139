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

// Owns the records.
class installed_list {
 public:
    explicit installed_list(const std::vector<installed> &packages) {
        for (const installed &package : packages) {
            vri *info = new_record({.name = package.name, .deps = package.deps});
            info->install_type = package.head.empty() ? 'X' : 'D';
            info->install_head = package.head.empty() ? nullptr : strdup(package.head.c_str());
            records_.emplace_back(info);
            list_.push_back(info);
        }
    }
    const std::vector<const vri *> &get() const {
        return list_;
    }

 private:
    std::vector<own_vri> records_;
    std::vector<const vri *> list_;
};

inline installed_list list_of(const std::vector<installed> &packages) {
    return installed_list(packages);
}
