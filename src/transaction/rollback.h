// Taking a half-done change back, and what of it stays.
#pragma once

#include <string>
#include <utility>
#include <vector>

// Takes a half-done change back: removes each of the paths in `written` (may be null), whether it
// was reached or not, then copies the files that the old stage directory has saved back to their
// places, the first saved first, so that of two backups the later one wins. A restored file has the
// owner, extended attributes, mode and times of its backup. 0, or -1 when a file could not be
// restored; the others are restored all the same. Made directories stay.
int vrm_install_rollback(char *const *written, const char *old);

// ---- Private to the library ----

struct change;

// What a rollback cannot undo. Noted before a package's files are written.
struct rollback_notes {
    // The places of configuration files and links where nothing was.
    std::vector<std::string> absent;
    // Files that belonged to no package, each with its copy.
    std::vector<std::pair<std::string, std::string>> kept;
};

// Notes where the configuration files and the links of an unpacked package are new.
void note_absent_places(change *change);

// Takes the file changes of a change back, and reports what was made and stays, and which kept
// files are gone. A removal wrote no files that would have to go. Result: whether no file of the
// old version is lost or changed.
bool roll_back(const change &change);
