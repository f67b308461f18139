// Private to the library: what a change touches of the live system, how that is saved, and how it
// is put back.
#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "support/own.h"

struct change;

// What was at a path before a change.
struct kept_path {
    int number;  // its name in the directory `keep`
    mode_t mode;
    uid_t owner;
    gid_t group;
    dev_t device;
    ino_t inode;
    std::string path;

    std::string text() const;
};

// All that a change of a package touches. Of directories only those that go are kept, ahead of what
// is in them; they are saved by moving them once they are empty.
struct touched_paths {
    std::string keep;  // the directory with what is saved
    std::vector<kept_path> kept;
    std::vector<std::string> absent;      // directories ahead of what is in them
    std::vector<std::string> gone_links;  // links that something of another kind replaces
    std::vector<std::pair<mode_t, std::string>> modes;
    std::string temporary;  // the name of files beside their place
};

// Puts back what was at the paths that are kept: what was changed or removed since is replaced by
// what is saved. Needs no new file where the saved one lies on the same file system. Result:
// whether all of it is back; of each that is not an ERROR line.
bool restore_kept(const touched_paths &touched);
// The directories and links among them, as far as no directory is in the place of a link. To be
// done before anything below them is looked at.
bool restore_ways(const touched_paths &touched);
// The directories alone.
bool restore_directories(const touched_paths &touched);
// And the modes.
bool restore_modes(const touched_paths &touched);

// Where a write through a path arrives that is a link to nothing: the place that the link, and
// those it leads to, name. The path itself where it is no such link.
std::string written_place(const std::string &path);

// The file systems that a change touches, and the one wait for all of them.
class touched_systems {
 public:
    // By the directory of a path, or the nearest one above it that exists.
    void add_directory_of(const std::string &path);
    void add(const std::string &directory);
    // Waits until all is written. False with errno.
    bool sync() const;

 private:
    std::map<dev_t, own_fd> systems_;
    std::unordered_set<std::string> known_;
};

// The name that a file has beside its place in this process.
const std::string &temporary_name();

// Finds out what a change will touch, once its files and links are settled, and what is there.
// Result: false, with an ERROR line, when that can't be known.
bool find_touched(change *change);

// Whether a path leads through one of some links, which is still a link.
bool leads_through_link(const std::unordered_set<std::string> &links, const std::string &path);

// Saves a directory that is kept, and takes it away by that. It must be empty. False with errno.
bool set_directory_aside(const touched_paths &touched, const std::string &path);

// Saves what is there: a second name in the directory `keep`, or a copy where that is refused.
// Result: false, with an ERROR line, when something can't be saved.
bool save_kept(const change &change);
