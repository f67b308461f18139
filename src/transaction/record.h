// Private to the library: the record of a change that is under way, as a file.
//
//   change/record    below the repository's root; the directory is for root alone
//
// The first line is "vrm-change" and the number of the format. Entries follow, in LDIF, each with
// an empty line ahead of it:
//
//   dn: change=KIND,...
//   NAME: VALUE
//   sum: <SHA-1 of the entry's text up to here>
//
// Entries are only appended. One without its sum was cut off while it was written: it does not
// count, nor does what follows. The kinds and their values:
//
//   command  process, started, boot     the program, as in a note of a running script
//            temporary                  the name that files have beside their place
//   begin    operation                  install, update or remove
//            name, old, new             the package: its name and unique names
//            time                       of the beginning, in seconds since the epoch
//            stage, entry, index        its stage directory, its places in the inventory
//            absent                     directories of the repository that were not there
//   script   name                       a script that was begun
//   replaced saved_set                  the directory for copies of files that belong to nobody and
//                                       are replaced; made for this change
//   touch    kept                       what was there: "<number> <type and mode, octal> <owner>
//                                       <group> <device> <inode> <path>"; it is saved as
//                                       <stage>/keep/<number>
//            absent                     a path, or a directory above one, where nothing was
//            gone                       a link that something of another kind takes the place of
//            mode                       "<octal> <path>", what a permission list changes
//            libraries                  1: ldconfig has to run
//   commit   libraries                  as above
//            has_data                   1: the package has a file index
//            due                        a script or hook command for the end of the command
//            action, old, new, head     the line of the history; none where no line is written
//            history                    the size of the history ahead of that line
//   did      name, due                  a package's script or hook command that has run
//   done                                all but what is due at the end of the command is done
//   undone                              the package of the last `begin` is as it was before
//
// What belongs to a package follows its `begin`. With a `commit` the package is in its new state
// and only what comes after that has to be finished; without it, and without `undone`, everything
// goes back. Times and extended attributes of what was there are those of what is saved: it is the
// same file under a second name, or a copy with all of them.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/handle.h"
#include "support/own.h"

inline constexpr int record_format = 1;

// The paths of a repository's record and of the directory for it.
std::string record_directory(const vrm_handle *handle);
std::string record_path(const vrm_handle *handle);

// An entry as it is built, and as it is read.
class record_entry {
 public:
    explicit record_entry(std::string kind) : kind_(std::move(kind)) {}

    void add(const char *name, std::string value) {
        values_.emplace_back(name, std::move(value));
    }
    const std::string &kind() const {
        return kind_;
    }
    // The first value of a name, empty for none.
    const std::string &value(std::string_view name) const;
    std::vector<std::string> all(std::string_view name) const;
    // The text, with the sum. Throws when memory fails.
    std::string text() const;

    const std::vector<std::pair<std::string, std::string>> &values() const {
        return values_;
    }

 private:
    std::string kind_;
    std::vector<std::pair<std::string, std::string>> values_;
};

// A record that was read.
struct read_record {
    std::vector<record_entry> entries;
    size_t length = 0;    // of the part that counts
    std::string refusal;  // why it can't be used; empty when it can
};

// Takes a record's text apart.
read_record parse_record(const std::string &text);

// Reads the record of a repository. Result: false with errno when it can't be read, ENOENT for
// none.
bool read_record_of(const vrm_handle *handle, read_record *record);
