// Guards around the copying of a change: the unpacked tree, files that stand in the way, rollback.
//
// The new stage directory holds an unpacked package (package/hashlist.h tells its forks). The old
// stage directory is a backup tree (package/fileops.h): each file that was taken away or written
// over stands in it at its own absolute path, and its index.txt lists these paths in order.
#pragma once

#include "support/handle.h"

// 1 when the package in hand brought a shared library, so that ldconfig must run. Set by
// vrm_chk_sub_files, cleared by the executors for each package.
extern int have_so;

// The answers to the question about a file that stands in the way, parsed by str2ekva. A capital
// answers for the rest of the package.
extern const char *const vrm_insert_choices;

// Proves that the unpacked package in `stage` holds only what its hash lists say, fork by fork in
// the order data, info, init, conf, dump. The caller sets the five places to null first. On success
// (0) each holds the paths of its fork's files, relative to the fork with a slash in front, in the
// order in which the directories list them, for arr_free; null for a fork without files. At the
// first fork that fails all five are null and the result is that of vrm_chk_sub_files.
int vrm_chk_all_files(const char *stage, char ***data, char ***info, char ***init, char ***conf,
                      char ***dump);

// The same for the one fork `sub`: 0, the number of files that its list doesn't have with their
// content, or -1 when the list is missing or damaged or a file can't be read. A listed file that
// isn't there goes unnoticed. A path that matches "*.so.*" sets have_so, also when the fork fails.
int vrm_chk_sub_files(const char *stage, const char *sub, char ***list);

// Decides which of the paths an install may write. What doesn't exist (links followed, so a
// dangling link doesn't) may be written; a file that a package owns stops the install; for any
// other the user is asked through the global vrmui object, with "r", replace, as default. 0, and
// `*out` is a new array for arr_free of the paths to write, possibly empty, or null when `files`
// is null; -1, and `*out` is null, when the install must not go on. Nothing is written here.
int vrm_chk_local_insert(vrm_handle *handle, char *const *files, char ***out);

// Takes a half-done change back: removes each of the paths in `written` (may be null), whether it
// was reached or not, then copies the files that the old stage directory has saved back to their
// places, the first saved first, so that of two backups the later one wins. A restored file has the
// owner, extended attributes, mode and times of its backup. 0, or -1 when a file could not be
// restored; the others are restored all the same. Made directories stay.
int vrm_install_rollback(char *const *written, const char *old);
