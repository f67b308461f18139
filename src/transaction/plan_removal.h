// Planning the removal of one installed package, and of those of its dependencies that were
// installed only for its sake.
#pragma once

#include "repository/snapshot.h"
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

// The same, with what is installed as the view has it, which may be a snapshot.
vrt *plan_removal(const installed_view &installed, const char *name, int mode, vrt **out);

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

// The same, with what is installed as the view has it.
int find_orphans(const installed_view &installed, const vri *candidate, int *num, vrd ***deps);

// The names of all installed packages that list `name` as a dependency, sorted, as a new array for
// arr_free; null when there are none.
char **vrm_dependson(vrm_handle *handle, const char *name);
