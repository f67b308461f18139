// Private to the transactions: where a package lies in the stage area, and how it gets there.
#pragma once

#include <optional>
#include <string>

#include "support/event.h"
#include "support/handle.h"
#include "transaction/stage_directory.h"
#include "transaction/vrt.h"

// The places of one package in the stage area, by its unique name.
struct stage_paths {
    std::string puname;
    std::string file;   // <stagearea>/<puname>.vrk, the staged package file
    std::string base;   // <stagearea>/<puname>, its stage directory
    std::string fresh;  // <base>/new, the unpacked package
    std::string old;    // <base>/old, the backups and their list index.txt
};

// Forms the paths. They are held to 1,024 bytes each; a longer one is refused, not cut, since a cut
// path is another package's.
// Result: false, with an ERROR line that begins with `who`, when one is too long.
bool stage_paths_of(const char *who, vrm_handle *handle, const vri *package, stage_paths *paths);

// Whether the identity of a package may become part of paths and command lines
// (package/safe_name.h). Result: false, with an ERROR line that begins with `who` and names the
// package.
bool identity_is_safe(const char *who, const vri *package);

// Whether an executor may begin: the handle holds the lock, nothing in the plan would leave its
// place in a path or on a command line, and the stage area is trusted. Asked before anything is
// touched.
// Result: false, with an ERROR line that begins with `who`.
bool may_carry_out(const char *who, const vrm_handle *handle, const vrt *transaction);

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
