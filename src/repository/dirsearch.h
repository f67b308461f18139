// Package files in directories that the user named, and the staged file that may serve again.
#pragma once

#include "package/vri.h"
#include "support/handle.h"

// Package files of one name that one search takes; further ones are passed over.
inline constexpr int dirsearch_limit = 461;

// Finds the package files of a name in directories. Each file with the extension is opened and
// read, as its name means nothing. Directories below are not searched.
// `variant`: null for any, "" or "default" for the default variant, else exactly this one.
// `dirs`: a null-terminated array, or null for no search at all.
// Returns a new null-terminated array of new records, for vrm_vri_list_free, in the order of the
// directories and of the file names in each; null when there are none. The records have an
// architecture that this machine runs, `relative_uri` is the path as it was formed and
// `absolute_uri` the same without links. Writes the number found to stderr; what is passed over
// and why is on the log.
vri **vrm_findall_dirs(vrm_handle *handle, const char *name, const char *variant,
                       char *const *dirs);

// The best package file of a name, by the choice among versions and variants. `version` plays no
// part. Returns a record of the caller's, for vrk_info_free, or null.
vri *vrm_findone_dirs(vrm_handle *handle, const char *name, const char *variant,
                      const char *version, char *const *dirs);

// Whether a file is the very package file that a catalogue's record describes, by size and SHA-1,
// so that it needn't be fetched: 1, else 0. Without a hash or a size in the record there is nothing
// to go by, and it is 0.
int vrm_stage_have_vrk(const char *file, const vri *info);
