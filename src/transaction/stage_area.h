// What a program makes sure of before it begins a change: that nobody but root has a hand in the
// stage area, and that nothing of an earlier attempt is in the way.
#pragma once

#include "package/vri.h"
#include "support/handle.h"

// Whether the stage area can be used: a directory, not a symbolic link to one, that belongs to the
// user of the process and that nobody else may write to. One that doesn't exist is no reason to
// refuse it; it is made when it is needed. The executors ask this themselves.
// Result: 0, or -1 with an ERROR line.
int vrm_check_stage(vrm_handle *handle);

// Empties the way for a change of one package: removes the stage directory that an earlier attempt
// left, such as one whose package could not be verified. An install would unpack over it, and its
// old files would fail the verification of a good package. A removal or an upgrade deletes such a
// directory, or writes its own backups over those that are there. So one with backups is left as it
// is, and the change must not begin: after a kill they are all that is left of what was replaced.
//
// Backups of another change of a package of that name are reported as a warning.
//
// `package` is the one to be installed, upgraded to or removed. `handle` must hold the repository
// lock. Result: 0 when there is no stage directory now; -1, with an ERROR line that names the
// directory, when it holds a file below `old`, can't be removed or is refused, as by
// vrm_check_stage.
int vrm_clear_stage(vrm_handle *handle, const vri *package);
