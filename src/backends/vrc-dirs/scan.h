// Looking for package files.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "backends/vrc-dirs/index.h"
#include "backends/vrc-dirs/reports.h"

namespace vrc_dirs {

struct FoundFile {
    std::string path;
    uint32_t relative_at;  // where in the path the part below the configured directory begins
    Stamp stamp;
};

struct Scan {
    std::vector<FoundFile> files;  // ordered by path, each once
    size_t directories_read = 0;   // of those asked for, without the ones below
};

// Lists the regular files, or links to such, named *.vrk in the directories and below. A file below
// two of them counts for the first. What can't be read, and what bears the name but is of another
// kind, is reported and left out. No file is opened.
Scan scan(const std::vector<std::string> &dirs, Reports *reports);

}  // namespace vrc_dirs
