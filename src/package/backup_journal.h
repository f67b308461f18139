// Private to the library: the backups of a change.
//
// A file that a change overwrites or takes away is saved below a backup base at its own absolute
// path, and the base's index.txt lists these paths, one a line, in the order of their backup. That
// is what a rollback reads, so a backup that isn't listed would not come back.
#pragma once

// Adds a path to the list of a backup base. Result: 0, or -1 with the reason on the log.
int note_backup(const char *backup_base, const char *path);

// Saves a file that is about to be taken away: its content and mode, and then its line in the list.
// Result: 0, or -1 with the reason on the log; the file itself is untouched in any case.
int save_backup(const char *backup_base, const char *path);
