// The index file: "vrc-dirs.index" in the configured directory.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "backends/vrc-dirs/index.h"
#include "backends/vrc-dirs/reports.h"

namespace vrc_dirs {

// Opens the index of a directory. Null when there is none, when it can't be trusted (it must belong
// to root or to the caller, and nobody else may write to it), or when it is no sound index of this
// version; all but the first is reported.
std::unique_ptr<catalogue_index> open_index(const std::string &directory, backend_reports *reports);

// Puts an index in the place of the one that stands there, which readers have mapped and keep. At
// any moment there is the old one or the new one, whole. The directory is made if there is none.
// False when it can't be written; the log says why, at INFO, since for a user that is not a fault.
// For root it is one, and reported: what was refreshed is lost with the process.
bool store_index(const std::string &directory, std::string_view bytes, backend_reports *reports);

}  // namespace vrc_dirs
