// Disturbs the strict cases and judges them strictly.
#pragma once

#include <cstdint>
#include <string>

struct strict_options {
    size_t every = 1;  // only each so many-th operation
    std::string only_case, only_kind;
    long only_at = -1;
    uint64_t seed = 1;  // of the points at which recoveries are killed
    bool verbose = false;
    // "overlay", which is what the throwaway root is; "other-disk" with the packages' usr on an
    // ext4 of its own; "no-links" with their boot on a file system of its own that has no links.
    std::string layout = "overlay";
};

// Kills the changes at each operation, lets the tool recover, kills the recovery too, and makes
// each operation fail. Prints a table and the first faults of each line of it. Returns the number
// of runs with a fault. The world has been made. Throws std::runtime_error.
size_t run_strictly(const strict_options &what);
