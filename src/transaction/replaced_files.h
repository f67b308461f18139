// Private to the transactions: the files that belong to no package and that a change replaces.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "transaction/link_conflicts.h"

// Keeps a copy of each file that the change is about to replace and that belongs to no package
// (repository/saved_files.h), and writes the copies to the disk. `written` are the data files that
// will be written, null for none: what is there belongs to no package unless it is one of
// `old_files`, those of the version that is replaced, null for none. A link is kept itself, as only
// the link is replaced. So is one that leads nowhere: a rollback or a removal takes it away.
// `kept` gets each of them with its copy.
// Result: false, with an ERROR line, when one can't be kept; there are no copies then.
bool keep_replaced_files(const package_change &change, char *const *written, char *const *old_files,
                         const settled_links &links,
                         std::vector<std::pair<std::string, std::string>> *kept);
