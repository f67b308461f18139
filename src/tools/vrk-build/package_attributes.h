// What a package says of itself: the file package.ldif of a source tree.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

// package.ldif is written in the dialect of support/ldif.h: a line for each attribute, long lines
// folded, values in base64 where they need it. It may hold comments and empty lines, and lines may
// end in CR LF. Values by reference to another file are refused: what a package says must stand in
// its source tree.
struct package_attributes {
    std::string name;
    std::string variant;  // empty: the default variant
    std::string version;
    std::string arch;
    std::string creator;
    std::string description;
    std::vector<std::string> dependencies;
};

// Reads package.ldif; throws a problem when it can't be read, lacks what a package needs or says
// what the package manager would refuse.
package_attributes read_attributes(const std::filesystem::path &path);

// "name_variant_arch_version", or without the variant: how the package is known on a machine, and
// what its file is called.
std::string unique_name(const package_attributes &attributes);

// The whole content of a regular file, links not followed. Throws a problem.
std::string read_text(const std::filesystem::path &path);
