// A change while all that reaches the disk of its machine is recorded.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "faults/disk.h"
#include "faults/tree.h"
#include "powercut/record.h"
#include "powercut/subject.h"

struct recording_wishes {
    // At how many points of the change another program syncs a file of its own while the change is
    // stopped, which makes the file system write what it has so far. 0 for no such program.
    size_t points = 0;
    unsigned seconds_after = 0;  // how long the record goes on after the end of the change
};

struct recording {
    std::string base;    // the disk before the change
    std::string record;  // what came to it
    tree before, after;
    size_t operations = 0;  // of the change
};

// The marks of a record beside the output of the change.
inline const std::string mark_of_point = "\1point";
inline const std::string mark_of_success = "\1success";
inline const std::string mark_of_end = "\1end";

// Makes the machine in the files `base` and `record` of a directory, runs the change, and records.
// `recorder` is the path of the program that records. `operations` is how many operations the
// change takes, which is known from an earlier recording; it is needed for points. Throws
// std::runtime_error, also when the change fails.
recording record_change(const subject &what, const disk_format &format,
                        const std::string &directory, const std::string &recorder,
                        const recording_wishes &wishes, size_t operations);
