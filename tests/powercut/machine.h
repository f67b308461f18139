// A small machine whose whole root is one file system on a disk in a file. Its programs are those
// of the root that the harness runs in, shown read only; all that a change touches lies on the
// disk.
#pragma once

#include <functional>
#include <string>

#include "faults/disk.h"
#include "faults/tracer.h"
#include "faults/tree.h"

// Puts onto an empty disk what a machine needs beside its programs.
void furnish(const std::string &root);

// All that a change may touch. What it only reads, such as the packages, is left out.
tree take_machine(const std::string &root);

// The machine as it runs: its programs, devices and processes are there as long as the object
// exists.
class running_machine {
 public:
    explicit running_machine(const std::string &root);
    ~running_machine();
    running_machine(const running_machine &) = delete;
    running_machine &operator=(const running_machine &) = delete;

    // Runs code in a child process whose root is the machine's. The code returns an exit status.
    watched_run run(const std::function<int()> &code) const;
    // The same, watched. What it writes to its standard output goes to the descriptor `output`.
    watched_run run_observed(const std::function<int()> &code, int output,
                             const operation_observer &observer) const;
    // Runs a program of the machine.
    watched_run run(const std::vector<std::string> &command) const;

 private:
    std::string root_;
    std::vector<std::string> mounts_;
};
