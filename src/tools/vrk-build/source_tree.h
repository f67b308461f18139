// The source tree of a package: package.ldif and the folders data, conf, dump, init and info.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tools/vrk-build/package_attributes.h"

struct source_file {
    std::string path;  // where it lies now
    uint64_t size;
    bool executable;  // by anybody
    bool special;     // set-user-id, set-group-id or sticky, which only info/perm.txt gives
};

struct source_tree {
    package_attributes attributes;
    // By member name in the payload: fork, slash, path. A map, as members are packed in this order.
    std::map<std::string, source_file> files;
    std::vector<std::string> remarks;  // what the author should know, though it is no failure
};

// Reads a tree and refuses, by a thrown problem, what the package manager could not install or
// should not be asked to: names that mean something to a shell, an unknown architecture, links and
// special files, files and file names that no package can hold, broken link and permission lists,
// and, unless the package `makes_base_layout`, links in the places of its directories.
source_tree read_source_tree(const std::string &dir, bool makes_base_layout);
