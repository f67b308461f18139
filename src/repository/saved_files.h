// Copies of the user's files that packages replaced.
//
//   saved/2026-11-21T20:00:00_hello_any_1.0/opt/x
//
// The directory `saved` of the repository is for root alone, and made when the first file goes
// there. It holds a directory for each change of a package that replaced files that belong to no
// package: local time, the package's unique name, and "#2" and so on for a further one of the same
// second. Each file lies in it at its own absolute path.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "support/handle.h"

// The directory of all saved files.
std::string saved_directory(const vrm_handle *handle);

// The copies of one change. They stay unless they are discarded.
class saved_change {
 public:
    // Nothing is made before the first file.
    saved_change(const vrm_handle *handle, const std::string &puname);

    // Makes the directory of the change, unless it is made. `path` is the first file's, for the
    // message. False, with an ERROR line, when it can't be made.
    bool begin(const std::string &path);
    // It; empty as long as it isn't made.
    const std::string &directory() const {
        return directory_;
    }
    // Copies what lies at an absolute path, a link as itself, with all that belongs to it. False,
    // with an ERROR line, when it can't be kept.
    bool keep(const std::string &path);
    // Waits until all copies are on the disk. False, with an ERROR line, when they are not.
    bool sync() const;
    // Removes the copies.
    void discard() const;
    // Where the copy of a path is.
    std::string copy_of(const std::string &path) const {
        return directory_ + path;
    }

 private:
    bool make_directory();

    std::string all_;  // the directory of all saved files
    std::string puname_;
    std::string directory_;  // of this change; empty as long as it isn't made
};

struct saved_file {
    std::string path;    // where it was
    std::string target;  // of a link; empty for all else
    uint64_t size;
};

// What one change replaced.
struct saved_set {
    std::string directory;  // with its path
    time_t time;
    std::string package;  // the unique name
    std::vector<saved_file> files;
};

struct saved_listing {
    std::vector<saved_set> sets;       // the oldest first
    std::vector<std::string> strange;  // paths of what is none of the tool's directories
};

// Lists what is saved; nothing where no file was saved yet. Symbolic links are listed and never
// followed. Result: false with the reason in errno when the directory can't be read, or memory
// fails.
bool list_saved(const vrm_handle *handle, saved_listing *listing);

// Removes the sets in which nothing is.
void remove_empty_sets(const vrm_handle *handle);

// Removes a set with all its files, without following links. False, with the ERROR lines of
// vrm_vrf_rmdir, when something is left.
bool remove_saved(const saved_set &set);
