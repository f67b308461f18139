// Copies of files over files of the live system, and the backups of a change.
//
// A file that a change overwrites or takes away is saved to a backup tree: below a directory, the
// backup base, at its own absolute path. The base's index.txt lists these paths, one a line, in the
// order of their backup. That is what a rollback reads, so a backup that isn't listed would not
// come back.
//
// A backup and what is restored from it have the owner, the extended attributes, the mode and the
// times of the original (package/preserved_copy.h). Until then they have the mode 0600. A backup
// base lies in a directory that only root can enter: a saved set-id program must not be run.
#pragma once

#include <cstdint>

// Copies a regular file over the target, with the parents that the target needs. An old target is
// taken away first, so its other names keep the old content, unless it can't be removed; with a
// backup base it is saved to the backup tree before that, with its mode. A link to a regular file
// is replaced by the copy, a dangling one is written through. A target that exists and, links
// followed, is no regular file is refused. `mode`: 0 or less leaves what the umask gives, 1 takes
// the mode of the source, any other value is the mode to set. Owners and times are not copied.
// Returns the number of bytes copied, at most INT32_MAX, and so 0 for an empty file; -1 on failure,
// which is logged at ERROR. A source that is missing or no regular file and a backup that fails
// leave the target as it was; a later failure leaves it missing or incomplete, and the backup tree
// is there to undo that.
int32_t vrm_vrf_copy(const char *target, const char *source, const char *backup_base, int mode);

// Saves a file that is about to be taken away, links followed, and then adds its line to the list.
// False with the reason on the log; the file itself is untouched in any case.
bool save_backup(const char *backup_base, const char *path);

// Restores a file from its backup in place of what is there now; a symbolic link is replaced,
// not followed. False with the reason on the log, and then the file can be missing or incomplete.
// The backup stays.
bool restore_backup(const char *path, const char *backup);
