// Disturbs the cases and judges what is left strictly.
#pragma once

#include <cstdint>
#include <string>

struct strict_options {
    size_t every = 1;   // only each so many-th operation
    size_t sample = 0;  // only so many operations for each kind, at random; 0 for all
    std::string only_case, only_kind;
    long only_at = -1;
    uint64_t seed = 1;  // of all that is random
    // In how many runs of a case the recovery is killed at each of its points. In the others it is
    // killed at one, at random.
    size_t thorough = 20;
    bool verbose = false;
    bool lists_operations = false;  // prints them with their numbers, and disturbs none
    // "overlay", which is what the throwaway root is; "other-disk" with the packages' usr on an
    // ext4 of its own; "no-links" with their boot on a file system of its own that has no links.
    std::string layout = "overlay";
};

// Kills the changes at each operation, lets the tool recover, kills the recovery too, and makes
// each operation fail. Prints a table and the first faults of each line of it. Returns the number
// of runs with a fault. The world has been made. Throws std::runtime_error.
size_t run_strictly(const strict_options &what);

// Whether broken engines are found to be broken, and whole ones not. Prints a line for each. The
// world has been made. Throws std::runtime_error.
bool find_broken_engines();
