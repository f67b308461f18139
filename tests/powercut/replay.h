// The disks that a power cut can leave, made from a record.
//
// A disk keeps what it had taken at the last flush. Of what it took after that it has any part, in
// whole writes or in blocks of them. So for each stretch between two flushes there are the disk
// without any write of the stretch, and as many as are wished with a random selection of them; all
// of these can be found up to the moment before the next flush, which is when the cut is taken to
// be. Where the record has a point, also the disk with all that it had taken then.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "powercut/record.h"

// A part of a write.
struct written_part {
    size_t entry;     // of the record
    uint64_t offset;  // in the entry, in bytes
    uint64_t length;
};

struct disk_state {
    size_t prefix;                    // so many entries of the record are on the disk in full
    std::vector<written_part> parts;  // and these of later ones, in their order
    size_t moment;                    // the cut comes ahead of this entry
    std::string name;                 // for people, such as "flush 12, selection 3"
};

struct state_wishes {
    unsigned selections = 20;  // for each stretch between two flushes
    size_t at_most = 0;        // so many states of all, selected at random; 0 for all
    uint64_t seed = 1;
};

// The states in the order of their prefixes.
std::vector<disk_state> states_of(const disk_record &record, const state_wishes &wishes);

// Makes disks of states, whose prefixes must not become less from one to the next.
class disk_maker {
 public:
    // `scratch` is a file for the disk with the prefix alone. Throws std::system_error.
    disk_maker(const std::string &base, const disk_record &record, const std::string &scratch);
    void make(const disk_state &state, const std::string &file);

 private:
    void apply(int disk, const written_part &part) const;

    const disk_record &record_;
    std::string scratch_;
    own_fd disk_;
    size_t applied_ = 0;
};

// What the change had said by a moment of the record.
struct said {
    std::set<std::string> packages;  // reported as done
    bool success;                    // it had ended well
};
said said_until(const disk_record &record, size_t moment);
