// The walk through the entries of the inventory, for listings and audits.
#pragma once

#include <string>
#include <utility>

#include "package/vri.h"
#include "support/handle.h"
#include "support/own.h"

// Goes through `installed` in the order of the directory. What is no directory is told at DEBUG, a
// name that begins with a dot is passed over in silence. Entries may be removed on the way.
class installed_walk {
 public:
    // A directory that can't be opened is told at WARNING.
    explicit installed_walk(vrm_handle *handle);

    bool is_open() const {
        return dir_ != nullptr;
    }
    // Goes on to the next entry of an open directory; false behind the last one, and when the
    // directory can't be read any further, which is told at WARNING.
    bool next();
    // Whether the walk ended before its last entry.
    bool broke_off() const {
        return broke_off_;
    }
    // The entry's directory, and its record, which is null when the entry is no valid package.
    const char *name() const {
        return name_.c_str();
    }
    std::string path() const {
        return installed_ + "/" + name_;
    }
    own_vri take_info() {
        return std::move(info_);
    }
    // The end of a whole walk, at which a failure is told at WARNING. One that breaks off is closed
    // in silence.
    void close();

 private:
    std::string installed_;
    own_dir dir_;
    bool broke_off_ = false;
    std::string name_;
    own_vri info_;
};

// What a listing says about an entry that is no valid package.
void log_passed_over(const char *name);
