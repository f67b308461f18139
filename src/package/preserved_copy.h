// Private to the library: copies of files that keep all that the original has.
#pragma once

// Copies what lies at `source` to `target`, where nothing may be yet. A regular file gets all that
// belongs to it as by copy_attributes (package/file_attributes.h), where what can't be set is a
// WARNING. A symbolic link is copied as a link, a pipe or a device is made anew, each with owner,
// mode and times, and without extended attributes. A directory is refused. Nothing is synced.
// Result: whether all else arrived; if not, what was made stays, and the reason is in errno.
bool copy_preserved(const char *source, const char *target);
