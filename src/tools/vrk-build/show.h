// Shows what a package file holds.
#pragma once

#include <string>

struct show_options {
    std::string file;
    std::string certificate_file;  // whom to believe; empty: the store
    std::string store = "/var/lib/vrm/certstore";
};

// Prints the head, the members of the payload, and whether the signature holds, with nothing that
// could steer the terminal. Result: whether the signature does. Throws a problem for a file that is
// no package, and for a damaged payload, behind what could be printed.
bool show(const show_options &options);
