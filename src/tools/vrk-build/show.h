// Shows what a package file holds.
#pragma once

#include <string>

struct show_options {
    std::string file;
    std::string certificate_file;  // whom to believe; empty: the store
    std::string store = "/var/lib/vrm/certstore";
};

// Prints the head, the members of the payload, whether the signature holds and whether the head is
// the signed description, with nothing that could steer the terminal. Result: whether both do.
// Throws a problem for a file that is not a package, and for a damaged payload, after what could be
// printed.
bool show(const show_options &options);
