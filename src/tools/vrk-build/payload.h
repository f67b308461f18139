// The payload of a package: the files of a source tree with their hash lists, in a compressed
// archive.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "tools/vrk-build/source_tree.h"

// Is handed the payload's bytes in order; throws when it can't take them.
using payload_sink = std::function<void(const void *bytes, size_t count)>;

// Reads all files twice, for their digests and for the archive, and throws a problem when the two
// differ. `description` becomes info/desc.txt.
void write_payload(const source_tree &tree, const std::string &description,
                   const payload_sink &sink);
