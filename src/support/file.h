// Reading and copying whole files.
//
// Every function here works on regular files only, links to them followed. A directory, a pipe or a
// device in the place of a source or a target is an error, and never makes the caller wait: what a
// hostile package or a careless administrator left at a path must not stop a change half way.
// After a failure `errno` tells the reason.
#pragma once

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

#include "support/own.h"

// Opens a regular file for reading. An invalid descriptor when it cannot be opened or is none.
// `status`, unless null, receives what the system tells of it, of what is no regular file too; its
// st_mode is 0 when there is nothing. `why`, unless null, receives the reason of a failure for a
// message.
own_fd open_regular(const char *path, struct stat *status = nullptr, const char **why = nullptr);

// The same as a stream, null on failure. The caller closes it.
FILE *fopen_regular(const char *path, struct stat *status = nullptr, const char **why = nullptr);

// Whether nothing is at a path, links followed. What can't be looked at, on a failing disk or
// through a loop of links, is not missing: it must not be taken for a place where anything may be
// written. `errno` tells why nothing could be seen, also then.
bool is_missing(const char *path);

// Whether anything is at a path that can be looked at, links not followed.
bool path_exists(const std::string &path);

// The directory that a path lies in, by its text: "/" for what is right below it and for a name
// without a directory.
std::string directory_of(std::string_view path);

// The type of an entry as d_type has it, links not followed. Not every file system gives it along
// with the name.
unsigned char type_of_entry(DIR *dir, const dirent &entry);

// As read, begun anew after a signal.
ssize_t read_some(int fd, void *to, size_t size);

// Writes all of the bytes; false, with the reason in errno, when not all could be.
bool write_all(int fd, std::string_view bytes);

// Copies what is left of an open file to the end of another one, both by their descriptors, so that
// nothing that happens to their names meanwhile has an effect. `*copied` receives the number of
// bytes. Result: which side failed, with the reason in errno.
enum class copy_end { complete, not_read, not_written };
copy_end copy_open_file(int from, int to, uint64_t *copied);

// A count of bytes as results and the log tell it: 2 GiB and more are told as the largest number.
inline int32_t told_bytes(uint64_t bytes) {
    return static_cast<int32_t>(std::min<uint64_t>(bytes, INT32_MAX));
}

// Reads a whole file into a new block of the file's size plus 10 bytes and stores the size in
// `*length`. The block is not null-terminated; the spare bytes are there for callers that terminate
// it. The caller frees it. A file without size, such as those of /proc, gives an empty block.
// Null, with `*length` 0, when the file cannot be opened or not be read to its size.
char *_read_file(const char *path, size_t *length);

// The same of a file below the open directory `dir`; AT_FDCWD is the working directory. The file is
// opened without a look at it first, which is a third of the work for a small file, so this is for
// directories that the administrator alone writes to: anything but a regular file is still an
// error and never waited for, but a device is opened and closed again. `status`, unless null,
// receives what the system says of the opened file, before it is read.
char *read_file_at(int dir, const char *path, size_t *length, struct stat *status = nullptr);

// Reads a file's lines into a new string array without their newlines, empty lines included, and
// stores their number in `*count`. The caller frees it by arr_free. Null, with `*count` 0, when the
// file is empty, which makes `errno` 0, and when not all of its lines can be read. A line holds at
// most one byte less than the file, so a single line without its newline arrives as two; only a
// file of one byte is whole.
char **read_file_lines(const char *path, int *count);

// Copies `source` over `target`, which is created or overwritten in place.
// `mode` 1: the target gets the source's permissions; any other above 0: it gets these; 0 or less:
// those of a new or overwritten file stay. A failure to set them is no failure of the copy.
// Result: the bytes copied, at most INT32_MAX however large the file is; -1 when a file cannot be
// opened, both are the same file, or not every byte arrived. The target may hold a part then.
int32_t file_copy(const char *target, const char *source, int mode);

// Puts a copy of `source` at `target`. A file that stands there is first copied to `backup`, unless
// that is null, with its permissions, and then removed, so that programs which have it open keep
// the old one. Anything else than a file at `target` is refused and stays. `mode` 1: the
// permissions of `source`; above 1: these; below 1: those of a new file. Result: the bytes copied,
// at most INT32_MAX; -1 on a failure, which is told on stderr. Permissions that cannot be set are
// told and are no failure. `target` stays untouched until the backup is complete and `source` is
// open.
int32_t file_copy_back(const char *target, const char *source, const char *backup, int mode);
