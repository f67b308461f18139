// Carrying out an update transaction.
#pragma once

#include "support/handle.h"
#include "transaction/vrt.h"

// Updates what a transaction of vrm_pre_update holds: stages every package, then takes the
// dependencies from the last of the array to the first, and the top package at the end; each that
// got through is written to the action log. By its `action` a dependency is installed (`I`),
// updated (`U`) or left alone, and so is the top package.
//
// `handle` must hold the repository lock. `connection` is the catalogue's, needed for packages
// whose status or source is `R`. `verbose` asks for progress lines at INFO. `rmpkg` asks to delete,
// after each change, the staged file that was staged last; with dependencies the others stay.
// Result: 0; -1 without the lock, for a name that is not allowed, for a stage area that others can
// write to (transaction/stage_area.h), when staging failed or when the program asked to stop
// (transaction/interrupt.h); 99 when the top package is not installed (`U`) or is so by now (`I`);
// else the code of the package that failed. Packages changed before it stay changed, and their
// configuration scripts run also then, by vrm_scripts_exe, which leaves hook commands in `hookcmds`
// for vrm_exe_hooks; only a top package to be installed that is there by now ends it without them.
// The reasons are on the log. The transaction stays the caller's.
int vrm_exe_update(vrm_handle *handle, vrt **transaction, void *connection, int verbose, int rmpkg);

// Replaces one installed package by a staged new version. Configuration files that are as they were
// shipped are replaced, changed ones kept. The new registration is built aside, under names with a
// leading dot, and swapped in by renames at the end, so that until then a failure leaves the old
// version registered. A rollback brings back what was written over or taken away, also replaced
// configuration; links, permissions, configuration that was not there before, made directories and
// the doings of the scripts stay, and a file of the new version that was to be written over and had
// not been reached yet is lost.
//
// `old_package` is the inventory's record, `new_package` that of the plan, which must be in the
// signed description of the payload, as in an install; both have one name. `connection`
// isn't used. Touches have_so, and through its steps the environment and, while unpacking and
// linking, the working directory. Links that only the old version lists stay, and are noted in
// left_links/NAME (repository/left_links.h). Once the new version is registered nothing makes the
// change fail any more.
// Result: 0; -1 for a name that is not allowed in a path, or for a stage directory that is not the
// user's own; or the code of the step that failed: -1, that of the unpacking or verification, or
// the raw wait status of 00-add.sh. That of 99-add.sh is reported as -1.
int vrm_update_vrk(vrm_handle *handle, vrt **transaction, const vri *old_package,
                   const vri *new_package, void *connection, int verbose);
