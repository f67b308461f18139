// Files that appear under their name whole or not at all, and new files that are never written over
// what is there.
#pragma once

#include <sys/stat.h>

#include <string>
#include <string_view>

#include "support/own.h"

// Whether a new file must outlive a power failure. The directory is a step of its own
// (sync_directory), since not every file system can sync one.
enum class durability { none, synced };

// A file under construction, beside the place that it is for. It is gone when the object is, unless
// it got its name. After a failure errno tells the reason.
class atomic_file {
 public:
    // Makes the file, for its owner only. `beside` is its name until the end: one that ends in
    // XXXXXX gets a unique ending; of any other name what a killed process left is removed first.
    atomic_file(const std::string &path, const std::string &beside);
    ~atomic_file();
    atomic_file(const atomic_file &) = delete;
    atomic_file &operator=(const atomic_file &) = delete;

    bool is_open() const {
        return file_.valid();
    }
    int fd() const {
        return file_.get();
    }
    const std::string &beside() const {
        return beside_;
    }
    // Writes all of the bytes at the present position.
    bool write(std::string_view bytes);
    // Gives the file its permissions and its name, in place of what had the name before. Nothing
    // may follow.
    bool commit(mode_t mode, durability how);

 private:
    std::string path_, beside_;
    own_fd file_;
};

// Writes a whole file so; the name it has until then is the path and ".new".
bool write_atomically(const std::string &path, std::string_view bytes, mode_t mode, durability how);

// Writes a whole file that is not there yet, to outlive a power failure. What is there already is
// never overwritten: EEXIST. It has its name from the beginning: a file that could not be written
// whole is removed, but a killed process leaves a part of it.
bool write_new_file(const std::string &path, std::string_view bytes, mode_t mode);

// A new name in the directory, or one that is gone, is sure to outlive a power failure after this.
bool sync_directory(const std::string &directory);
