// Removal of one installed package, and of those of its dependencies that were installed only for
// its sake.
//
// What a removal takes away is what the file index of the package lists, and the links of its
// link.txt. Configuration files are in no index: they stay on the disk, and so does all that the
// package's scripts and programs made.
#pragma once

#include "support/handle.h"
#include "transaction/vrt.h"

// Plans the removal of an installed package. `mode` 2 removes the package alone; with any other
// value the dependencies that nobody else needs go with it. Reads the disk and changes nothing.
// Result: a new transaction for vrt_free, also stored in `*out`, with source `L`, action `D`, and
// in `deps` records with status `I` and action `D` in the order in which they were found. Null, and
// `*out` left alone, when the package isn't installed, when its entry holds the record of another
// package, or when another package needs it. A dependency with such an entry stays. What was found
// is appended to the text of the user interface object, one sentence a line.
//
// At most two dependents are looked at (vrm_chk_delete_reqs), and the last one decides: one that
// was installed for the sake of this package allows the removal, also behind one that does not.
vrt *vrm_pre_delete(vrm_handle *handle, const char *name, int mode, vrt **out);

// Carries a removal out: the top package first, then its dependencies from the first to the last,
// each written to the action log when it is gone. `handle` must hold the repository lock.
// Result: 0; -1 without the lock, for a name that is not allowed, for a stage area that others can
// write to (transaction/stage_area.h) and when the program asked to stop (transaction/interrupt.h);
// else the code of the package that failed. Packages that went before it stay gone. No
// configuration scripts and no hooks are run. The reasons stand on the log. The transaction stays
// the caller's.
int vrm_exe_delete(vrm_handle *handle, vrt **transaction);

// Removes one installed package: its 00-del.sh, its files with a backup of each, its 99-del.sh, its
// links, and at the end its entry of the inventory and its file index. Until then a failure brings
// the files back, by vrm_install_rollback, and the package counts as installed. A file that is gone
// already, or can't be removed, is a warning. The stage directory of the package is emptied before
// and removed afterwards, also when a file could not be brought back from there. Sets and clears
// the environment of the scripts; the links change the working directory for their run.
// Result: 0, -1, or the raw wait status of a script.
int vrm_one_delete(vrm_handle *handle, const vri *package);

// The installed packages that need this one, in the order of the inventory's directory: the first
// two, as a new array for vrm_vri_list_free. Null when there are none, and also when the inventory
// can't be read.
vri **vrm_chk_delete_reqs(vrm_handle *handle, const vri *package);

// Looks for the dependencies that can go with a candidate: installed for its sake, or for that of a
// package that is gone, and needed by nobody else that vrm_chk_delete_reqs sees. What is found is
// looked at in its turn. At the first call `*deps` is null and `*num` 0; each record is stored in
// the null-terminated array `*deps`, and their number in `*num`. The caller releases each record,
// with vrd_free and free, and the array.
//
// A level doesn't look again at `*num` after the dependencies of one of its own were stored: its
// next find takes their place. Those stay installed for this time.
//
// The capacity of the array is kept in static data, so two searches can't run at the same time.
// Result: 0, or 99 when memory fails.
int vrm_chk_delete_deps(vrm_handle *handle, const vri *candidate, int *num, vrd ***deps);

// The names of all installed packages that list `name` as a dependency, sorted, as a new array for
// arr_free; null when there are none.
char **vrm_dependson(vrm_handle *handle, const char *name);
