// The audits of the inventory as a whole: entries that are no packages, and packages that were
// installed for the sake of another one which is gone or no longer wants them.
//
// Both go through the entries of `installed` in the order of the directory, passing over what is no
// directory or begins with a dot, tell what they find with vrmui_write_info, a sentence at a time,
// and ask what to do about it when vote_mode is 1. A capital letter answers for the rest of the
// walk. In every other mode nothing is asked and nothing is changed. While dry_run is set
// (maintenance/upkeep.h) they report only, and need no lock.
#pragma once

#include "package/vri.h"
#include "support/handle.h"

// Finds orphans: packages of install type D whose head, the package they came with, isn't installed
// or doesn't list them among its dependencies. Other installed packages that list one are told
// along with it, but it stays an orphan. The user is offered a repair, which no letter carries out
// yet: nothing is ever changed.
//
// `handle` is the repository, whose lock the caller holds. Returns the number of orphans; 0 also
// when `installed` can't be opened; -1 without the lock, when the user aborts or gives no answer,
// when `installed` can't be read to its end, or when vrm_stop_requested (transaction/interrupt.h)
// was set before an entry.
int vrm_chkhead(vrm_handle *handle);

// Finds entries that are not valid packages or hold the record of another package than they are
// named after, and removes those that the user wants removed, the latter with their file index.
// With `report` not 0 the sums are printed at the end. What can't be removed is logged at ERROR and
// stays.
//
// `handle` is the repository, whose lock the caller holds. Returns the number of invalid entries,
// removed or not; 0 also when `installed` can't be opened; -1 as above. What was removed before an
// abort is gone.
int vrm_chkinst(vrm_handle *handle, unsigned report);

// Writes the install record of an entry anew and puts it in the entry's place: the install type
// becomes `new_type`, the head `head`, or none for null, and the repair counts as an update of this
// moment. `package` is the record of the inventory.
//
// The new entry is built in "installed/.<name>.new" and holds inst.txt and what the caller has put
// there before, nothing else: of the old entry nothing is kept. A caller that wants the package to
// stay installed copies the rest there first. The caller holds the repository lock. Returns 0, or
// -1 when the record can't be written or can't be put in place, with the reason on the log, and for
// a name that is not allowed; the old entry stands then, and the new one is removed.
int vrm_fixinst_vrk(vrm_handle *handle, const vri *package, char new_type, const char *head);
