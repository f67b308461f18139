// The stage area: where a change works, and what is made sure of before it begins there. Nobody but
// root has a hand in it, and nothing of an earlier attempt is in the way.
#pragma once

#include <initializer_list>
#include <string>

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

// ---- Private to the library ----

// The directory of a role of the repository, empty for none.
std::string dir_of(const vrm_handle *handle, const char *role);

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

// Whether the stage area is a directory that only the user of the process can write to, or is still
// to be made. Result: false, with an ERROR line that begins with `who`.
bool is_stage_area_trusted(const char *who, const vrm_handle *handle);

// The same of the stage area and of the stage directory of a package, in which neither the unpacked
// package nor the backups may be a link.
bool is_stage_trusted(const char *who, const vrm_handle *handle, const stage_paths &stage);

// Whether a stage directory and what is saved in it can be believed: each belongs to the user of
// the process, is not a link, and nobody else may write to it, and `keep` is for that user alone.
// What doesn't exist is not refused. Result: false, with an ERROR line that begins with `who`.
bool are_saved_files_trusted(const char *who, const std::string &base);

// Why a directory is not to be used, as somebody else has a hand in it; empty for one that may be
// used or that doesn't exist.
std::string fault_of_directory(const std::string &path);

// Whether a stage directory holds backups. What can't be looked at is taken for one.
bool has_backups(const std::string &base);

// Makes the stage directory of a package, which only its owner may enter: set-id programs are saved
// there. One that exists is kept and gets the mode 0700. `parts` are the directories to make in it,
// with 0755. As with vrm_vrf_mkdir, whoever opens a file there finds out what could not be made.
// Result: false, with an ERROR line that begins with `who`, for what is_stage_trusted refuses, of a
// part as well.
bool make_stage_directory(const char *who, const vrm_handle *handle, const stage_paths &stage,
                          std::initializer_list<std::string> parts);
