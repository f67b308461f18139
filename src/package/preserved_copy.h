// Private to the library: copies of files that keep what belongs to a file beside its name and its
// content.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <string>

// Gives the file behind a descriptor the owner and group, the extended attributes (capabilities,
// access control list and all others), the mode and the times of another one, in this order: a
// change of the owner takes capabilities and set-id bits away, and a mode that came first would let
// the wrong owner's program run. `status` is the other file's, taken before it was read. The file
// must be private until now, with mode 0600, and complete.
//
// What can't be set is a WARNING that names `path`, the file's own, and no failure. It never makes
// the file accessible to more users than the other one: without its owner and group it gets no
// set-id bits and no group bits. Without its access control list it gets the bits of its owner
// alone: the group bits of such a mode say what all entries of the list together may do, and an
// entry can deny what others may.
void copy_attributes(int from, const struct stat &status, int to, const char *path);

// Copies what lies at `source` to `target`, where nothing may be yet. A regular file gets all that
// belongs to it as by copy_attributes, where what can't be set is a
// WARNING. A symbolic link is copied as a link, a pipe or a device is made anew, each with owner,
// mode and times, and without extended attributes. A directory is refused. Nothing is synced.
// Result: whether all else arrived; if not, what was made stays, and the reason is in errno.
// `target` is seen from the open directory `directory`.
bool copy_preserved(const char *source, const char *target, int directory = AT_FDCWD);

// Whether what lies at `path` is what was saved as `saved`: the same file, or a regular file or a
// link with the same content, mode, owner and time of its last change. The number of its inode says
// nothing of its content: a file that was written over in its place has kept it, and a file system
// without such numbers gives new ones at each mount.
bool is_what_was_saved(const std::string &path, const std::string &saved);

// Writes a regular file over the one at `target` in its place, for what can't be replaced, such as
// a mount point. It is half there meanwhile, and after a failure. It gets the mode of `source`, or
// all that belongs to it as by copy_attributes; what can't be set is a WARNING. Result: whether the
// content arrived; if not, the reason is in errno.
enum class belongings { mode, all };
bool write_over(const char *target, const char *source, belongings what);
