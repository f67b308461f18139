// Private to the library: copies of files that keep all that the original has.
#pragma once

// Copies what lies at `source` to `target`, where nothing may be yet, with owner, group, extended
// attributes, mode and times, set in this order. A symbolic link is copied as a link, a pipe or a
// device is made anew; a directory is refused. Extended attributes that the file system of the
// target does not support are left out, with a WARNING. Nothing is synced.
// Result: whether all of it arrived; if not, what was made stays, and the reason is in errno.
bool copy_preserved(const char *source, const char *target);
