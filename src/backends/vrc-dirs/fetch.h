// Handing a package file to the engine.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "backends/vrc-dirs/reports.h"
#include "package/vri.h"

namespace vrc_dirs {

// The largest package file, in bytes, whose size the result of a fetch can report.
inline constexpr uint64_t largest_fetch = INT32_MAX;

// Writes the file at the record's absolute_uri to `out`, which stays open and is flushed, so that
// a full disk shows here. The path must lie below one of the directories and be a regular file of
// less than 2 GiB, the largest that the result can tell. Result: the bytes written, or -1 with the
// reason reported; part of the file may then have been written.
int fetch(const std::vector<std::string> &dirs, const vri &package, FILE *out,
          backend_reports *reports);

}  // namespace vrc_dirs
