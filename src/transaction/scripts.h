// The scripts of packages, their environment, and the hook commands of a transaction.
//
// A package carries its scripts in its init fork:
//
//   00-add.sh  before an install or update touches the system; a failure ends the package
//   99-add.sh  when the files are in place, before registration; a failure rolls the package back
//   99-cfg.sh  at the end of the whole transaction; a failure is logged and forgotten
//   00-del.sh  before a removal; a failure ends it
//   99-del.sh  when the files are gone; a failure rolls the removal back
//
// Every script runs under the shell `ash` of the repository's "scriptdir", which is its working
// directory and all of its PATH. What it has to know of the package is in its environment:
//
//   VRM_MODE       INSTALL or UPDATE in the add scripts; removals have none
//   VRM_VRKDIR     the package's directory in the inventory; in 99-add.sh of an update, which runs
//                  before the package is there, the new stage directory
//   VRK_STAGE_NEW  the stage directory of the unpacked package, in the add scripts
//   VRK_STAGE_OLD  the stage directory of what a removal took away, in 99-del.sh
//   VRK_NAME, and with the endings _OLD, none and _NEW: VRK_VARIANT, VRK_VERSION, VRK_ARCHITECTURE,
//   VRK_CREATOR, VRK_DESCRIPTION, VRK_DEPENDENCIES; see vrm_scriptenv_add
//
// The paths are in the command lines as they are, without quotes: whoever forms a stage directory
// from a package's names has refused names that mean something to a shell.
#pragma once

#include <string>

#include "support/event.h"
#include "support/handle.h"
#include "transaction/vrt.h"

// Sets the VRK_ variables of a script run in the environment of the process: an install gives only
// the new package, a removal only the old one, an update both.
//   _OLD and _NEW  from the package of that side, if given
//   without ending from the new package if given, else from the old one. An old package never fills
//                  in what a new one lacks
//   VRK_NAME       from the old package if given, else from the new one
// VARIANT, CREATOR and DESCRIPTION exist only for a package that has them. DEPENDENCIES, the
// dependencies joined by blanks, exist for a package with a description, and without dependencies
// they read "(null)". Values are cut at 1950 bytes.
// Result: the strings that now are part of the environment, for vrm_scriptenv_del, which must
// follow the script's run; null when both packages are null and, with nothing set, when memory
// fails: then the script must not run, as it would take its package for one without a name. One
// script at a time.
char **vrm_scriptenv_add(const vri *old_package, const vri *new_package);

// Takes the variables of such a list out of the environment again and frees it; null is accepted.
void vrm_scriptenv_del(char **list);

// Runs a script's command line. What it wrote to stdout and to stderr goes to the log at INFO, if
// that writes to a file, and then to stdout and stderr, all of it after the script ended. `label`
// is the caller's name for the run, which with VRK_NAME of the environment says in the note of the
// running script (repository/running_script.h) what runs; it may be null. Result: the raw wait
// status, so 256 for an exit status of 1; -1 when it could not be run.
int vrm_system(const char *label, const char *command);

// The result of the last vrm_system. Not every executor hands it on, and whether a script died of
// an interruption that was sent to it alone is seen by nothing else.
extern int vrm_script_status;

// Runs the configuration scripts that the packages of a transaction registered in `scripts`, in
// order, and moves the hook commands, which begin with a slash, from there to `hookcmds`. A script
// learns of its package from the description in the inventory; when that can't be read, a warning
// on the log says so and it runs without. Failures are logged and stop nothing. Always 0.
int vrm_scripts_exe(vrm_handle *handle, vrt **transaction);

// Runs hook commands, a record of package names and command lines, one after the other; null is
// accepted. A failure is logged and stops nothing. Always 0. Called with the `hookcmds` of a
// transaction after vrm_scripts_exe, and followed by vrm_hookcmds_del.
int vrm_exe_hooks(s_ekva *const *commands);

// Drops the hook commands of a transaction. The handle is not used. Always 0.
int vrm_hookcmds_del(vrm_handle *handle, vrt **transaction);

// ---- Private to the library ----

struct change;

// The command line of an add script. `mode` is "INSTALL" or "UPDATE", `stage` the directory of the
// unpacked package.
std::string add_script_line(const vrm_handle *handle, const std::string &script,
                            const std::string &mode, const std::string &stage);

// The command line of a removal script. `name` is the package, `old_stage` where a removal keeps
// what it took away, which 00-del.sh does not use.
std::string del_script_line(const vrm_handle *handle, const std::string &script,
                            const std::string &name, const std::string &old_stage);

// A script of a change, and the events about it.
struct change_script {
    const char *file;
    const char *moment;  // in the DEBUG lines
    event_kind failed;
    event_kind running = {};  // reported when the change is verbose, which no removal is
};

// Runs a script if the package has it: one of the unpacked package or, in a removal, one of the
// inventory. Result: the script's raw wait status, -1 when it could not be run, 0 without a script.
int run_script(const change &change, const change_script &script);

// Finds out what is left for the end of the transaction: the package's own configuration script and
// the commands of the hooks that it meets. Result: 0.
int find_due(change *change);

// Leaves that for the end of the transaction.
void note_configuration(const change &change);
