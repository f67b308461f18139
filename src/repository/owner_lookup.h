// The owners of files, as the file indexes of the inventory tell them.
#pragma once

#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "support/event.h"
#include "support/handle.h"
#include "support/own.h"

// The name of the package that owns a file, for free, or null. A symbolic link stands for what it
// points at, so `path` must exist; otherwise it is compared as it is spelled. The answer costs one
// pass over all file indexes, and the first one in the directory's order wins.
char *vrm_file_owner(vrm_handle *handle, const char *path);

// A file index, or the directory of them, that could not be read.
struct unread_index {
    event_kind kind;
    std::string path;
    int error;

    void report() const;
};

// Owners of many files at once: asking vrm_file_owner for each reads all file indexes each time,
// and this reads them once.
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
