// The reader of a package file's head, private to the functions that start there.
#pragma once

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
