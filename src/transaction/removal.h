// Carrying a removal out.
//
// What a removal takes away is what the file index of the package lists, and the links of its
// link.txt. Configuration files are in no index: they stay on the disk, and so does all that the
// package's scripts and programs made.
#pragma once

#include "support/handle.h"
#include "transaction/vrt.h"

// Carries a removal out: the top package first, then its dependencies from the first to the last,
// each written to the action log when it is gone. `handle` must hold the repository lock.
// Result: 0; -1 without the lock, for a name that is not allowed, for a stage area that others can
// write to (transaction/stage_area.h) and when the program asked to stop (transaction/interrupt.h);
// else the code of the package that failed. Packages that went before it stay gone. No
// configuration scripts and no hooks are run. The reasons are on the log. The transaction stays
// the caller's.
int vrm_exe_delete(vrm_handle *handle, vrt **transaction);

// Removes one installed package: its 00-del.sh, its files with a backup of each, its 99-del.sh, its
// links, and at the end its entry of the inventory and its file index. Until then a failure brings
// the files back, by vrm_install_rollback, and the package counts as installed. A file that is gone
// already, or can't be removed, is a warning. The stage directory of the package is emptied before
// and removed afterwards, also when a file could not be brought back from there. Sets and clears
// the environment of the scripts; the links change the working directory for their run. Links that
// are gone are dropped from left_links/NAME (repository/left_links.h).
// Result: 0; -1 for a name that is not allowed in a path, for a stage area that others can write to
// and for a step that failed; or the raw wait status of a script.
int vrm_one_delete(vrm_handle *handle, const vri *package);
