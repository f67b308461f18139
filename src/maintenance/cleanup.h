// The cleanup: gives back the room of what is left in the repository on purpose or by a crash.
//
//   directory   entries                                               what they are
//   installed   directories, a dot first and ".old" last in the name  retired inventory entries
//   fileindex   files, a dot first and ".old" last in the name        retired file indexes
//   stagearea   files, ".vrk" last in the name                        staged package files
//
// A retired entry outlives its update only when the process died before its last step. All else
// stays: what is installed, what is under construction (".new"), the work directories of the stage
// area, and also a name that holds its suffix more than once.
#pragma once

#include "support/handle.h"

// Removes what the table tells, directory by directory in its order, and asks about each entry when
// vote_mode is 1; a capital letter then answers for the rest of the directory. In every other mode
// all of it goes without a question. While dry_run is set (maintenance/upkeep.h) nothing is asked
// or removed and no lock is needed: the log alone tells what would go.
//
// `handle` is the repository, whose lock the caller holds. Returns the number of entries removed,
// or, with dry_run, of those that would be; a file counts also when it could not be removed. -1
// without the lock, when one of the directories can't be opened, when the user aborts or gives no
// answer, or when vrm_stop_requested (transaction/interrupt.h) was set before an entry; what was
// removed by then is gone. What can't be measured or removed is logged at ERROR and passed over.
// At the end the sum of the sizes is logged at INFO: "cleanup deleted: %s".
int vrm_cleanup(vrm_handle *handle);
