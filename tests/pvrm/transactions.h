// Transactions for tests, as the planners make them.
#pragma once

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "support/arch.h"
#include "transaction/vrt.h"

struct package_of_plan {
    std::string name;
    std::string version = "1.0";
    std::vector<std::string> deps = {};
    std::string cand = {};  // for whose sake it comes
    char status = 'R';      // as in a vrd
    uint64_t filesize = 0, datasize = 0;
};

inline vri *new_record(const package_of_plan &package) {
    auto *record = static_cast<vri *>(calloc(1, sizeof(vri)));
    record->name = strdup(package.name.c_str());
    record->version = strdup(package.version.c_str());
    record->description = strdup("A package of a plan");
    record->arch = arch_any;
    record->filesize = package.filesize;
    record->datasize = package.datasize;
    if (!package.deps.empty()) {
        record->deps = static_cast<char **>(calloc(package.deps.size() + 1, sizeof(char *)));
        for (size_t i = 0; i < package.deps.size(); i++) {
            record->deps[i] = strdup(package.deps[i].c_str());
        }
    }
    return record;
}

inline own_vrt new_plan(const package_of_plan &top, const std::vector<package_of_plan> &deps = {}) {
    own_vrt plan(static_cast<vrt *>(calloc(1, sizeof(vrt))));
    plan->name = strdup(top.name.c_str());
    plan->source = top.status;
    plan->action = 'I';
    plan->mark = 'N';
    plan->info = new_record(top);
    plan->deps = static_cast<vrd **>(calloc(deps.size() + 1, sizeof(vrd *)));
    for (const package_of_plan &dep : deps) {
        auto *record = static_cast<vrd *>(calloc(1, sizeof(vrd)));
        record->status = dep.status;
        record->action = dep.status == 'I' ? 'N' : 'I';
        record->name = strdup(dep.name.c_str());
        record->cand = strdup(dep.cand.c_str());
        record->info = new_record(dep);
        plan->deps[plan->num_deps++] = record;
    }
    return plan;
}
