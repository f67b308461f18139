// The audits of what the inventory's entries say: whether it fits together, and fits the disk.
#pragma once

#include "support/handle.h"

// Looks through the valid entries, sorted by name, for dependencies that are not installed, for
// hash lists with files but without a file index, and for links and permissions that are not as
// listed (maintenance/place_audit.h); then for file indexes without an entry, and for links that
// earlier versions left (repository/left_links.h) and no installed package lists. Damaged entries
// are the business of vrm_chkinst.
//
// Each finding is an event of the level 0. Nothing is changed and no lock is needed. Without it,
// what is found is looked at again, and not reported while another process changes the repository;
// that something was withheld is a finding itself. Result: the number of findings; 0 when
// `installed` can't be opened; -1 when it can't be read to its end, when memory fails, or when
// vrm_stop_requested (transaction/interrupt.h) was set. A `fileindex` that can't be read is an
// ERROR, and file indexes are left out then.
int vrm_chkconsistency(vrm_handle *handle);

// Compares the links and permissions of one installed package with its lists, and looks for files
// of it that everybody may write to. A file that is missing is left to vrm_chkhash. Each difference
// is an event of the level 0, and another process that changes the repository is treated as above.
// Nothing is changed and no lock is needed. Result: the number of findings; -1 when memory fails,
// which is an ERROR, or when vrm_stop_requested was set.
int vrm_chkplaces(vrm_handle *handle, const char *name);
