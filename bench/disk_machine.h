// A machine on a disk: a root file system of its own in a fresh ext4 image, with the programs and
// the repository of the sandbox. All of it that a change touches is one mount, as it is on a real
// machine; with bind mounts in between a rename would fail with EXDEV.
#pragma once

#include <string>
#include <vector>

#include "bench/commands.h"

// What a command cost, and what it left for the disk.
struct disk_cost {
    double command;  // seconds until it ended
    double sync;     // seconds from there until syncfs returned
    double cpu;  // seconds of user and system time, of the command and the processes it waited for
    double peak_megabytes;

    double total() const {
        return command + sync;
    }
};

// Makes the device nodes that mounting an image needs; the sandbox has none.
void make_loop_devices();

class disk_machine {
 public:
    // The image is a file in this directory, allocated, and unlinked as soon as it is mounted. What
    // lies in bench/changes of the sandbox is copied into it.
    explicit disk_machine(const std::string &image_dir);
    ~disk_machine();
    disk_machine(const disk_machine &) = delete;
    disk_machine &operator=(const disk_machine &) = delete;

    // From here to leave() this process and its children have the image as their root.
    void enter();
    void leave();

    // Waits until all that was written is on the disk.
    void settle() const;

    // Runs a command in the machine, from a settled disk, and the sync. Ends the benchmarks when
    // the command fails.
    disk_cost change(const std::vector<std::string> &command);

 private:
    int outside_;  // the root directory of the sandbox
    int inside_;   // the root directory of the image
};
