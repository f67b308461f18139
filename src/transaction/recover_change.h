// Recovery from a change that was cut off, by a kill or a crash of the machine: what its record
// (transaction/record.h) says is taken back or finished, package by package.
#pragma once

#include "support/handle.h"

// Recovers, when there is a record: a package whose change was marked as done is finished: its
// registration, its line in the history, its configuration script and hooks, ldconfig; any other is
// exactly as it was before, but for what its scripts did. Each package is reported by a WARNING.
// Can be cut off itself at any time and run again. The caller must hold the lock, and must not be
// in a change itself.
// Result: how many packages were recovered, 0 without a record; -1, with an ERROR line that names
// a path and the reason, when it can't be done now. The record and what is saved stay then.
int vrm_recover_change(vrm_handle *handle);

// Removes a retired entry of the inventory, which has the path ROOT/installed/.NAME.old. When the
// program is killed meanwhile, a recovery removes the rest. Result: as of vrm_vrf_rmdir.
int remove_retired_entry(const char *path);

// Reports what vrm_recover_change would do. Needs the right to read the record, and no lock: a
// change that runs is not one that was cut off. Result: as that of vrm_recover_change.
int vrm_show_recovery(vrm_handle *handle);

// Gives up: moves the record and what is saved below `saved`, where nothing touches them, and
// leaves the system as it is. The caller must hold the lock. Result: 0, also without a record; -1
// with an ERROR line.
int vrm_abandon_change(vrm_handle *handle);

// What everybody may know of a change that was cut off: 1, and a new heap string with the operation
// and the package, such as "upgrade of foo_any_2.0"; 0 and null when there is none or it runs.
int vrm_cut_off_change(vrm_handle *handle, char **what);
