// Which names of a package may reach a shell, a path or a command line.
//
// The head of a package file is covered by no signature, and a catalogue is only as good as its
// backend; yet names from both become file names in the stage area and the inventory, and words of
// command lines. Readers, searches and planners take any name; what changes the system takes only
// those that pass here.
#pragma once

#include "package/vri.h"

// Whether a text may stand as name, variant or version: not empty, no `.` or `-` at its start, and
// nothing but ASCII letters, digits and + - . , : ~ @ % = _
// `text` may be null, which is not safe. The locale plays no part.
bool vrk_name_is_safe(const char *text);

// The first part of a package's identity that is not safe: "name", "variant", "version" or
// "architecture" (an id that is in no table), a constant text. Null when all is well. A variant may
// be null, which is the default one, or empty: neither adds anything to a name that could do harm.
const char *vrk_info_unsafe_part(const vri *info);
