// Private to the library: the backups of a change.
//
// A file that a change overwrites or takes away is saved below a backup base at its own absolute
// path, and the base's index.txt lists these paths, one a line, in the order of their backup. That
// is what a rollback reads, so a backup that isn't listed would not come back.
//
// A backup and what is restored from it have the owner, the extended attributes, the mode and the
// times of the original (package/preserved_copy.h). Until then they have the mode 0600. A backup
// base lies in a directory that only root can enter: a saved set-id program must not be run.
#pragma once

// Adds a path to the list of a backup base. Result: 0, or -1 with the reason on the log.
int note_backup(const char *backup_base, const char *path);

// Saves a file that is about to be taken away, links followed, and then adds its line to the list.
// Result: 0, or -1 with the reason on the log; the file itself is untouched in any case.
int save_backup(const char *backup_base, const char *path);

// Restores a file from its backup in place of what is there now; a symbolic link is replaced,
// not followed. Result: 0, or -1 with the reason on the log, and then the file can be missing or
// incomplete. The backup stays.
int restore_backup(const char *path, const char *backup);
