// One connection: its settings, and what it knows of the catalogue.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "backends/vrc-dirs/index.h"
#include "backends/vrc-dirs/reports.h"
#include "backends/vrc-dirs/search.h"

namespace vrc_dirs {

struct Settings {
    std::vector<std::string> dirs;  // absolute, without "." and "..", each once
    std::string cache;              // the index file's directory; empty: there is no index file
};

// Reads the settings from a record of the configuration, which may be null. What isn't an absolute
// path is reported and left out: what a relative one means would depend on where the program was
// started.
Settings read_settings(s_ekva *const *conf, Reports *reports);

class Catalogue {
 public:
    explicit Catalogue(s_ekva *const *conf) : settings_(read_settings(conf, &reports_)) {}

    const Settings &settings() const {
        return settings_;
    }
    Reports &reports() {
        return reports_;
    }
    // Takes over what the index file holds, if it is of the same directories.
    void load();
    // Brings the view up to date, and the index file where it can be written. False when no
    // directory is configured or could be read; the view stays then. A directory that can't be read
    // and a file that is left out are reported by each refresh, also where they were known before.
    bool refresh();
    // The matching records, see vrc_findpkg.
    int find(const Request &request, vri ***out);

 private:
    void drop_if_damaged();
    void store();

    Reports reports_;
    Settings settings_;
    std::unique_ptr<Index> index_;  // null: nothing is known
};

}  // namespace vrc_dirs
