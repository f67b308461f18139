// The head of a package file and the payload after it, private to the functions that read them.
#pragma once

#include <archive.h>

#include <cstdio>
#include <string>

#include "package/vri.h"
#include "support/handle.h"
#include "support/own.h"

// Reads magic, size and description from the start of `stream`, which then stands on the payload's
// first byte. Result: false when the head is malformed, with the reason on the log at ERROR.
// `short_magic_behind` is what stands behind the message of a file too short for a magic.
bool read_head(FILE *stream, const std::string &short_magic_behind, std::string *description);

// Opens a package file, reads its head and parses the description. On success the stream stands on
// the payload's first byte and `size` is the file's; else null, with the reason on the log.
own_vri open_package(const char *path, own_file *stream, uint64_t *size);

// Checks the record's signature over the rest of the stream, notes the outcome in `sig_status` and
// puts the stream back to where it stood. Result: whether it could be put back.
bool check_signature(vrm_handle *handle, FILE *stream, vri *info);

using own_reader = std::unique_ptr<archive, release_with<archive_read_free>>;

// Makes `reader`, fresh from archive_read_new, read a gzip-compressed cpio archive from the
// stream's position on. Whether an archive of another kind is told of at the opening or at the
// first header depends on the library's version; it counts as opened here, and the first header
// then fails.
bool open_payload(archive *reader, FILE *stream);
