// The hash audit: whether the files of an installed package are still what it delivered.
//
//   fork   the file that is hashed                         what counts as an error
//   dump   installed/<name>/dump<path>                     it can't be read, or differs
//   init   installed/<name>/init<path>                     it can't be read, or differs
//   data   <path>                                          it can't be read, or differs
//   conf   installed/<name>/conf<path>, the pristine copy  it can't be read, or differs
//          and <path>                                      it can't be read
//
// A configuration file is there to be edited: the one on the disk may differ from what came, it
// must only be there. The fork info is not audited, since its hash list isn't kept.
#pragma once

#include <string>

#include "support/handle.h"

// Compares the files of one installed package with the hash lists of its inventory entry, fork by
// fork in the order of the table. Reads only, and needs no lock.
//
// `name` is the package's name. What is found is appended to the text of the user interface object,
// a line each: edited configuration files and the summary always, and with `verbose` not 0 also the
// number of hashes of each fork and each file that is as it should be. Errors of single files are
// logged at ERROR. Returns the number of errors; -1 when the package isn't installed or one of its
// hash lists can't be read or is malformed, which ends the audit without a summary. A list that
// isn't there is a fork without files.
int vrm_chkhash(vrm_handle *handle, const char *name, unsigned verbose);

// The same beside another process that changes the repository: without the lock what is found is
// looked at again, and not reported while that process holds the lock. That something was withheld
// is then the one finding, and the text is empty. The text is begun anew.
int vrm_chkhash_settled(vrm_handle *handle, const char *name, unsigned verbose);

// Private to the maintenance: whether a hash list is there and can't be opened, with the reason in
// errno and, unless null, `why`. The reader of lists takes such a one for none, and then every file
// would pass.
bool is_there_unreadable(const std::string &list, const char **why = nullptr);
