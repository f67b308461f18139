// The base64 of RFC 4648, standard alphabet, padded, without line breaks.
#pragma once

#include <cstddef>

// Encodes `source_length` bytes to `target`, which has room for `target_size` bytes, and puts a
// terminator behind them. Returns the number of characters without it, or -1 when characters and
// terminator don't fit; the target is then as it was.
int lutil_b64_ntop(const unsigned char *source, size_t source_length, char *target,
                   size_t target_size);

// Decodes a null-terminated text, white space skipped, to `target`, which has room for
// `target_size` bytes; a null target only counts. Returns the number of decoded bytes, 0 for a text
// without any. Returns -1 for a character outside the alphabet, an incomplete group, padding that
// is misplaced, too short or followed by anything but white space, bits left over in the last byte,
// and bytes that don't fit; what the target then holds is undefined.
int lutil_b64_pton(const char *source, unsigned char *target, size_t target_size);
