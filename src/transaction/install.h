// Carrying out an install transaction.
#pragma once

#include "support/event.h"
#include "support/handle.h"
#include "transaction/vrt.h"

// Installs what a transaction of vrm_pre_install holds: stages every package, then installs the
// dependencies from the last of the array to the first, and the top package at the end; each that
// got through is written to the action log. A package that is installed by now is passed over.
//
// `handle` must hold the repository lock. `connection` is the catalogue's, needed for packages
// whose status or source is `R`. `verbose` asks for progress lines at INFO. `rmpkg` asks to delete,
// after each install, the staged file that was staged last; with dependencies the others stay.
// Result: 0; -1 without the lock, for a name that is not allowed, for a stage area that others can
// write to (transaction/stage_area.h), when staging failed or when the program asked to stop
// (transaction/interrupt.h); else the code of the package that failed. Packages installed before it
// stay installed, and the configuration scripts of those run also then, by vrm_scripts_exe, which
// leaves hook commands in `hookcmds` for vrm_exe_hooks. The reasons are on the log. The
// transaction stays the caller's.
int vrm_exe_install(vrm_handle *handle, vrt **transaction, void *connection, int verbose,
                    int rmpkg);

// Takes one staged package file onto the system and into the inventory. When a step fails before
// the package is registered the files that were written over come back and the new ones go. Beyond
// that a rollback knows nothing: links, permissions, new configuration files, made directories and
// the doings of the scripts stay, and a file that was to be written over and had not been reached
// yet is lost. A stage directory that is found is unpacked over, not cleared.
//
// What the plan and the head of the file say must be in the signed description of the payload
// (package/signed_record.h), which is believed from there on.
//
// `package` is the record of the plan. `head` is the name of the package for whose sake it
// is installed, its own name for one that was asked for. `connection` isn't used. What is left for
// the end of the transaction, 99-cfg.sh and hook commands, is added to the transaction's `scripts`.
// Touches have_so, and through its steps the environment and, while unpacking and linking, the
// working directory.
// Once the package is registered nothing makes the change fail any more.
// Result: 0; -1 for a name that is not allowed in a path, or for a stage directory that is not the
// user's own; or the code of the step that failed: -1, that of the verification, or a script's raw
// wait status.
int vrm_install_vrk(vrm_handle *handle, vrt **transaction, const vri *package, const char *head,
                    void *connection, int verbose);

// ---- Private to the library: what an update does with packages that are not installed yet ----

struct plan_run;

// Whether a package is installed by now, which is logged as the reason to pass it over.
bool is_installed_by_now(vrm_handle *handle, const vri *package);

// Installs a dependency of a plan, unless it is installed by now. `failure` is the kind of event
// that reports a failure: the executors spell it differently.
int install_dependency(const plan_run &run, const vrd *dep, event_kind failure);

// Installs the top package of a plan.
int install_top(const plan_run &run);
