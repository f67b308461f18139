// Runs a program, watches its file operations, and disturbs one of them.
//
// The kernel asks before each operation (seccomp's user notification), so nothing escapes: calls of
// the C library and of every other library in the process are seen alike, no build with seams is
// needed, and the program that is tested is the one that is installed.
#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "faults/operation.h"

struct disturbance {
    enum what {
        fails,   // the operation isn't done and fails with `error`
        kills,   // the process dies, with the operation not done
        halves,  // a write or a copy takes only half of its bytes; other operations are done whole
    } does = fails;
    size_t at = 0;  // which operation, counted from 0; past the last one nothing is disturbed
    int error = 0;
    // For the check of the harness itself, what turns the program into a broken one: calls by their
    // names that from the disturbance on are answered as done and are not.
    std::set<std::string> then_skipped = {};
    // From then on all operations that take room on the disk fail in the same way.
    bool stays = false;
};

// From here on, watched programs find that the file system of a directory has no links, special
// files and extended attributes, as vfat has none: to make one below it fails with EPERM.
void refuse_links_below(const std::string &directory);

struct watched_run {
    int status = 0;                // as from waitpid
    std::vector<operation> trace;  // all operations, the disturbed one among them
    bool disturbed = false;        // false when there was no such operation
    std::string output;            // of stdout and stderr
};

// Runs a program to its end. Operations count when their path lies in or below one of `places`, and
// only those of the program's own process: what it starts is left alone. Nothing is disturbed with
// null. Throws std::runtime_error when the program can't be watched on this machine.
watched_run run_watched(const std::vector<std::string> &command,
                        const std::vector<std::string> &places, const disturbance *what);

// Code for a child process that becomes a program.
std::function<int()> execution_of(const std::vector<std::string> &command);

// Is called ahead of each operation that counts, with its number, while the process is stopped.
using operation_observer = std::function<void(size_t number, const operation &op)>;

// Runs code in a child process and watches all that it asks of the kernel, undisturbed. The exit
// status is what the code returns. What the code starts is left alone here too.
watched_run run_watched(const std::function<int()> &code, const std::vector<std::string> &places,
                        const operation_observer &observer = nullptr);

// Runs code in a child process without watching it.
watched_run run_alone(const std::function<int()> &code);

// The program without anybody watching.
watched_run run_alone(const std::vector<std::string> &command);
