// File operations on the live system: trees, permission and link lists.
//
// perm.txt, in info/ of a package: a line for each entry, "<path>|<mode>", the mode in octal
// digits. A `|` behind the mode is allowed; what follows it is written over the mode from its first
// byte on, as a line has only two fields. The path is used as it stands, so it is absolute in
// practice.
//
// link.txt, in info/ of a package and later in the package's directory of the inventory: a line for
// each entry, "<directory>|<target>|<name>". An empty directory means the one of the line before; a
// line with nothing but a directory changes to it. The name is relative to the directory. Text
// behind a third `|` is written over the name from its first byte on.
//
// In both, empty lines are skipped, a line has at most 4,095 bytes and a field at most 2,063. A
// line beyond that, or one with a zero byte, is refused with an ERROR and the list goes on.
#pragma once

#include <sys/types.h>

#include <cstdint>

// The last character of a text, if it is `c`. Null if it is another one, or if the text is null or
// empty. What it returns points into the text.
const char *last_char_is(const char *text, int c);

// Removes a path with all below it. Symbolic links are removed, never followed. What can't be
// removed is logged at ERROR and the walk goes on. Returns 0, also for a path that doesn't exist,
// or -1 when anything is left. Trees of any depth are removed with a bounded number of open files.
int vrm_vrf_rmdir(const char *path);

// Adds the lengths of all files below a path, in bytes, to `*total`. A symbolic link counts with
// its own length, a directory with nothing. Returns 0, also for a path that doesn't exist, or -1
// when a part of the tree could not be measured; the rest is added all the same.
int vrm_vrf_dudir(const char *path, uint64_t *total);

// Makes a directory with the given mode, and its parents, where they are missing, with 0755 (the
// umask applies to both). One trailing slash is cut off `path` for good. Failures are not reported:
// whoever opens a file in the directory finds out.
void vrm_vrf_mkdir(char *path, mode_t mode);

// Applies a permission list: a chmod for each line. Returns the outcome of the last chmod (0 or -1,
// so a failure on an earlier line shows only in the log), 0 when the list asked for none, and -1
// when the list can't be opened or not be read to its end.
int vrm_vrf_perms(const char *list);

// Applies a link list: with `remove` takes each symbolic link away, with `create` makes it; with
// both an old link is replaced. Anything but a symbolic link is never removed. Returns the outcome
// of the last stat, lstat, unlink or symlink (0 or -1), 0 when there was none, and -1 when the list
// can't be opened or not be read to its end or the working directory can't be known or restored.
// Directories of the list that don't exist are made. Changes the working directory of the process
// for its run.
int vrm_vrf_links(const char *list, int remove, int create);
