// Private to the transactions: the directories that a change works in, which must be root's alone.
#pragma once

#include <initializer_list>
#include <string>

#include "support/handle.h"

struct stage_paths;

// Whether the stage area is a directory that only the user of the process can write to, or is still
// to be made. Result: false, with an ERROR line that begins with `who`.
bool is_stage_area_trusted(const char *who, const vrm_handle *handle);

// The same of the stage area and of the stage directory of a package, in which neither the unpacked
// package nor the backups may be a link.
bool is_stage_trusted(const char *who, const vrm_handle *handle, const stage_paths &stage);

// Makes the stage directory of a package, which only its owner may enter: set-id programs are saved
// there. One that exists is kept and gets the mode 0700. `parts` are the directories to make in it,
// with 0755. As with vrm_vrf_mkdir, whoever opens a file there finds out what could not be made.
// Result: false, with an ERROR line that begins with `who`, for what is_stage_trusted refuses, of a
// part as well.
bool make_stage_directory(const char *who, const vrm_handle *handle, const stage_paths &stage,
                          std::initializer_list<std::string> parts);
