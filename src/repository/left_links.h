// Private to the library: links that an earlier version of a package made and the present one does
// not list. An update leaves them where they are, and nothing else in the repository knows of them.
//
//   left_links/NAME   a line for each, "<path>|<target>"
//
// The path is absolute, its directory spelled without links. Neither text can hold a `|` or a line
// feed. The directory and a record are made when the first link is left, and go with the last. The
// record outlives the package: a removal takes away only what the installed version lists. What a
// version lists that is installed now, or what is not there any more, may be in the record and does
// not count.
#pragma once

#include <string>
#include <vector>

#include "support/handle.h"

struct left_link {
    std::string path, target;
};

// The path of a package's record.
std::string left_links_path(const vrm_handle *handle, const std::string &package);

// The links of a record, none without one. Result: false with the reason in errno when it can't be
// read to its end, or, as EINVAL, when it has lines that are not of this form; those are left out.
bool read_left_links(const vrm_handle *handle, const std::string &package,
                     std::vector<left_link> *links);

// The packages that have a record, sorted. Result: false with the reason in errno when they can't
// be known.
bool packages_with_left_links(const vrm_handle *handle, std::vector<std::string> *packages);

// Whether a symbolic link with that target is at the path. errno is 0 when it is known that there
// is none.
bool is_in_place(const left_link &link);

// Notes after an update which links of the old version the new one does not list. Both are paths of
// link lists, which may be missing. A record that can't be written is a WARNING.
void note_left_links(const vrm_handle *handle, const std::string &package,
                     const std::string &old_list, const std::string &new_list);

// Drops from the record, after a removal, the links that are not there any more.
void note_removed_links(const vrm_handle *handle, const std::string &package);
