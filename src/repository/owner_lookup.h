// Owners of many files at once: asking vrm_file_owner for each reads all file indexes each time,
// and this reads them once. Private to the library.
#pragma once

#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "support/event.h"
#include "support/handle.h"
#include "support/own.h"

// A file index, or the directory of them, that could not be read.
struct unread_index {
    event_kind kind;
    std::string path;
    int error;

    void report() const;
};

class owner_lookup {
 public:
    // The handle must outlive the lookup. Nothing is read before the first question.
    explicit owner_lookup(vrm_handle *handle) : handle_(handle) {}

    // What vrm_file_owner gives for the path, with the same lines on the log, as long as the
    // indexes stay as they were at the first question.
    own_string owner(const char *path);

 private:
    void read_indexes();

    vrm_handle *handle_;
    bool read_ = false;
    // Indexes are known by their place in the directory's order; the first that lists a path wins.
    std::vector<std::string> names_;
    std::unordered_map<std::string, size_t> place_of_path_;
    // What could not be read is reported in each search that comes to its place.
    std::vector<std::pair<size_t, unread_index>> unread_;
};

// The owners of files by where they lie: each of `places` is an absolute path whose directory is
// spelled without links, and an index may spell it in any way. What nobody owns is not in the
// result. All indexes are read once, and what can't be read of them is an ERROR line.
std::unordered_map<std::string, std::string> owners_of_places(
    const vrm_handle *handle, const std::unordered_set<std::string> &places);
