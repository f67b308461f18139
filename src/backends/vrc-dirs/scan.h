// Looking for package files.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "backends/vrc-dirs/index.h"
#include "backends/vrc-dirs/reports.h"

namespace vrc_dirs {

struct found_file {
    std::string path;
    uint32_t relative_at;  // where in the path the part below the configured directory begins
    file_stamp stamp;
};

struct scan_result {
    std::vector<found_file> files;  // ordered by path, each once
    size_t directories_read = 0;    // of those asked for, without the ones below
};

// Lists the regular files, or links to such, named *.vrk in the directories and below. A file below
// two of them counts for the first. What can't be read, and what bears the name but is of another
// kind, is reported and left out. No file is opened.
scan_result scan(const std::vector<std::string> &dirs, backend_reports *reports);

}  // namespace vrc_dirs
