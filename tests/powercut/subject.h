// What is run on a machine that loses its power.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "faults/packages.h"

struct subject {
    std::string name;
    std::function<void()> prepare;  // in the machine: makes the state before. Throws.
    std::function<int()> change;    // in the machine: what is cut off; returns an exit status
    std::vector<package_paths> packages;
    std::vector<std::string> recovery = {};  // the command after the cut, empty for none
};

// A case of the fault harness, with the recovery of the tool where it has one.
subject subject_of_case(const std::string &name);

// What the harness is tested with: programs that exchange files with more or less care.
//   careless   writes beside, renames over; no sync at all
//   file-only  the same, with the file synced and not its directory
//   dir-only   the same, with the directory synced and not the file
//   careful    all of it
const std::vector<subject> &known_subjects();
