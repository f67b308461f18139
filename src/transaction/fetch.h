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
