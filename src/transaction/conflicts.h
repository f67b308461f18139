// What is in the way of a change's files: what it may write, what it takes away, and the copies
// of what belongs to nobody.
#pragma once

#include "support/handle.h"

// The answers to the question about a file in the way, parsed by str2ekva. A capital
// answers for the rest of the package.
extern const char *const vrm_insert_choices;

// Decides which of the paths an install may write. What doesn't exist (links followed, so a
// dangling link doesn't) may be written; a file that a package owns stops the install; for any
// other the user is asked through the global vrmui object, with "r", replace, as default. 0, and
// `*out` is a new array for arr_free of the paths to write, possibly empty, or null when `files`
// is null; -1, and `*out` is null, when the install must not go on. Nothing is written here.
int vrm_chk_local_insert(vrm_handle *handle, char *const *files, char ***out);

// Splits the data files of two versions into what to write and what to take away. Both lists are
// null-terminated or null. A new file may be written when it is not on the disk (links followed) or
// belongs to the old version; one that another package owns ends the update; for one of no package
// the user is asked through the global vrmui object, with "r", replace, as default. An old file is
// taken away when it is on the disk and not among the new ones.
// Result: 0, and `*del_files` and `*add_files` are new arrays for arr_free, possibly empty, each
// null when its list was; -1, and both are null, when the update must not go on. Nothing is written
// here.
int vrm_chk_local_update(vrm_handle *handle, char *const *old_files, char *const *new_files,
                         char ***del_files, char ***add_files);

// ---- Private to the library ----

struct change;

// Reads what is to be known of the old side before the first script: the files of what an update
// replaces, or the links that a removal has to leave to others. Result: 0, or -1 with an ERROR
// line.
int read_old_side(change *change);

// Settles, before anything is written, which data files are written and which are taken away, whose
// the links are, and keeps a copy of each file that is about to be replaced and that belongs to no
// package (repository/saved_files.h). What is in the place of a data file belongs to no package
// unless it is the replaced version's. A link is kept itself, as only the link is replaced. So is
// one that leads nowhere: a rollback or a removal takes it away.
// Result: 0, or -1 with an ERROR line; there are no copies then.
int settle_conflicts(change *change);
