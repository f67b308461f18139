// Private to the transactions: what a rollback cannot undo.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "transaction/link_conflicts.h"

// Noted before a package's files are written.
struct rollback_notes {
    // The places of configuration files and links where nothing was.
    std::vector<std::string> absent;
    // Files that belonged to no package, each with its copy.
    std::vector<std::pair<std::string, std::string>> kept;
};

// Notes where the configuration files and the links of an unpacked package are new.
void note_absent_places(const package_change &change, const settled_links &links,
                        rollback_notes *notes);

// Reports, after a rollback, what was made and stays, and which kept files are gone.
void report_remains(const package_change &change, const rollback_notes &notes);
