// Getting the package files of a plan into the stage area.
#pragma once

#include <optional>
#include <string>

#include "support/event.h"
#include "support/handle.h"
#include "transaction/vrt.h"

// Puts the package file that a record names by its absolute_uri into the stage area, under the
// package's own name, where vrm_exe_install finds it for a dependency with status `R` and a
// filehash. `verbose` asks for the progress line "copying <puname>.vrk" at INFO. Result: 0, or -1
// with the reason on the log, also for a name that is not allowed.
int vrm_stage_file(vrm_handle *handle, const vri *package, int verbose);

// ---- Private to the library ----

struct plan_run;

// In what the executors differ.
struct fetch_words {
    event_kind announce_dep;  // reports that a dependency is being fetched
    bool lists_deps;          // a DEBUG line for each dependency
};

// Stages the top package of a plan and then the dependencies, in the order of the array, without
// what is installed. Then makes sure that what brings dependencies in is signed: a dependency that
// only a head or a catalogue claims would be installed, with its scripts, before the package that
// names it is refused. When the plan changes a dependency, the staged files of the top package, and
// of each dependency to be changed that has dependencies itself, must have a valid signature, a
// head that is the signed description, and the record that was planned. One whose own staged file
// isn't there is passed over, its change will fail. Result: 0, or -1 with an ERROR line; what was
// staged by then stays.
int stage_plan(plan_run *run, const fetch_words &words);

// Gets a package of the catalogue into `path`, unless the very file lies there already, as one that
// the user of the process alone can change: another user's, one that others may write to and one
// with a second name are replaced.
// `announce` is the kind of event that says that it begins; none for a quiet fetch.
// Result: 0, or -1 with an ERROR line that begins with `who`. A half-written file stays: the next
// attempt sees by its size and digest that it is not the one. A whole file with another SHA-1 than
// the record's filehash, when it has one, is deleted.
int stage_fetch(const char *who, std::optional<event_kind> announce, void *connection, vri *package,
                const std::string &path);

// Copies a package file of the local system to `path`. Result as above; a staged file that the user
// named himself stays in any case, and is refused when somebody else could change it.
int stage_copy(const char *who, bool announce, const vri *package, const std::string &path);
