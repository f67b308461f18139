// What reached a disk, in its order: each write, each flush, and marks of other events between
// them.
//
// A record is a file that grows at its end. An entry is a head and the bytes that it announces.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/own.h"

enum class entry_kind : uint32_t {
    write,  // bytes that the disk has taken, which may be lost as long as no flush follows
    zero,   // a range that was discarded or set to zero, in the same way
    flush,  // all entries before it are on the disk for good
    mark,   // something that happened at this moment; the bytes are its name
};

struct record_entry {
    entry_kind kind = entry_kind::mark;
    uint64_t offset = 0;     // of a write, in bytes from the start of the disk
    uint64_t length = 0;     // of a write, in bytes, or of a mark's name
    uint64_t time = 0;       // nanoseconds of the monotonic clock
    std::string_view bytes;  // of a write, or the name; belongs to the record
};

// Appends an entry. `bytes` is empty for a flush and for a range of zeros, whose length is given.
// Throws std::system_error.
void append_entry(int record, entry_kind kind, uint64_t offset, std::string_view bytes,
                  uint64_t zeros = 0);

// A record that is not written to any more, mapped into memory.
class disk_record {
 public:
    // Throws std::system_error, or std::runtime_error for a record that is damaged.
    explicit disk_record(const std::string &path);
    ~disk_record();
    disk_record(const disk_record &) = delete;
    disk_record &operator=(const disk_record &) = delete;

    const std::vector<record_entry> &entries() const {
        return entries_;
    }

 private:
    void *memory_ = nullptr;
    size_t size_ = 0;
    std::vector<record_entry> entries_;
};
