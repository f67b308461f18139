// The inventory of installed packages: a directory tree, walked anew for each question.
//
//   installed/<name>/desc.txt   the package's description
//   installed/<name>/inst.txt   when and why it was installed
//   installed/<name>/...        its other info files, hash lists, scripts, pristine configuration
//   fileindex/<name>            one absolute path a line for each data file; none without data
//
// An entry counts when it is a real directory, its name doesn't begin with a dot, and both texts
// can be read and parsed. A dot marks the work of an update: `.foo.new` under construction,
// `.foo.old` during the swap. The directory's name is what an entry is found by; the `name` of its
// record is what desc.txt says. There is at most one installed package of a name.
//
// Nothing here needs the lock, changes the disk or talks to the user. What is damaged is passed
// over.
#pragma once

#include <string>
#include <utility>

#include "package/vri.h"
#include "support/handle.h"
#include "support/own.h"

// The words for a dependency's status letter, of which only the low byte counts; a constant text.
const char *vrk_stat_desc(int status);

// The record of an installed package, for vrk_info_free, or null when it isn't installed. A name
// that is empty, begins with a dot or holds a slash is never installed, nor is a link.
vri *vrm_vrl_info(vrm_handle *handle, const char *name);

// The same, but null when the record has another name than the entry: that of another package says
// nothing about this one.
vri *vrm_vrl_own_info(vrm_handle *handle, const char *name);

// As vrm_vrl_info, of the entry that an update sets aside before it enters the new version. It is
// there only after an update that was cut off.
vri *vrm_vrl_retired_info(vrm_handle *handle, const char *name);

// The installed packages whose name or description equals the pattern or matches it as a shell
// pattern; all of them for null. `sort` not 0 sorts them by name, else the order is the
// directory's. The result is their number; `*out` is a new array for vrm_vri_list_free, and is left
// alone when there are none. An inventory that can't be read to its end, and memory that fails,
// give none: a part of the list would pass for all of it.
int vrm_list_vri(vrm_handle *handle, const char *pattern, int sort, vri ***out);

// The names of all installed packages, sorted by bytes when `sort` is not 0. A new array for
// arr_free, null when there are none or on failure.
char **vrm_list_arr(vrm_handle *handle, int sort);

// The paths in the file index of the package that `info` names. A new array for arr_free, null when
// it has no files, with errno 0, and when the index can't be read, with the reason in errno. A path
// of more than 4094 characters comes as several entries.
char **vrm_vrl_file_list(vrm_handle *handle, const vri *info);

// The same by name; null also when the package isn't installed.
char **vrm_vrl_index(vrm_handle *handle, const char *name);

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
