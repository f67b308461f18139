// One connection: its settings, and what it knows of the catalogue.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "backends/vrc-dirs/index.h"
#include "backends/vrc-dirs/reports.h"
#include "backends/vrc-dirs/search.h"

namespace vrc_dirs {

struct backend_settings {
    std::vector<std::string> dirs;  // absolute, without "." and "..", each once
    std::string cache;              // the index file's directory; empty: there is no index file
};

// Reads the settings from a record of the configuration, which may be null. What isn't an absolute
// path is reported and left out: what a relative one means would depend on where the program was
// started.
backend_settings read_settings(s_ekva *const *conf, backend_reports *reports);

class dirs_catalogue {
 public:
    explicit dirs_catalogue(s_ekva *const *conf) : settings_(read_settings(conf, &reports_)) {}

    const backend_settings &settings() const {
        return settings_;
    }
    backend_reports &reports() {
        return reports_;
    }
    // Takes over what the index file holds, if it is of the same directories.
    void load();
    // Brings the view up to date, and the index file where it can be written. False when no
    // directory is configured or could be read; the view stays then. A directory that can't be read
    // and a file that is left out are reported by each refresh, also where they were known before.
    bool refresh();
    // The number of records that are known.
    uint32_t records() const {
        return index_ ? index_->records() : 0;
    }
    // The matching records, see vrc_findpkg.
    int find(const search_request &request, vri ***out);

 private:
    void drop_if_damaged();
    void store();

    backend_reports reports_;
    backend_settings settings_;
    std::unique_ptr<catalogue_index> index_;  // null: nothing is known
};

}  // namespace vrc_dirs
