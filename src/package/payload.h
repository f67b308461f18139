// Opening a package's payload, private to the functions that read it.
#pragma once

#include <archive.h>

#include <cstdio>

#include "support/own.h"

using own_reader = std::unique_ptr<archive, release_with<archive_read_free>>;

// Makes `reader`, fresh from archive_read_new, read a gzip-compressed cpio archive from the
// stream's position on. Whether an archive of another kind is told of at the opening or at the
// first header depends on the library's version; it counts as opened here, and the first header
// then fails.
bool open_payload(archive *reader, FILE *stream);
