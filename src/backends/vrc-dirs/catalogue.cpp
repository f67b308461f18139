#include "backends/vrc-dirs/catalogue.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <filesystem>

#include "backends/vrc-dirs/index_file.h"
#include "support/log.h"

namespace vrc_dirs {

// A path in the one form in which paths are compared; empty when it isn't absolute.
static std::string clean_path(std::string_view text, const char *key, backend_reports *reports) {
    constexpr std::string_view blanks = " \t\r\n";
    const size_t start = text.find_first_not_of(blanks);
    if (start == std::string_view::npos) {
        return "";
    }
    text = text.substr(start, text.find_last_not_of(blanks) - start + 1);
    if (text.front() != '/') {
        reports->warn(std::string(key) + ": <" + std::string(text) +
                      "> is not an absolute path, leaving it out");
        return "";
    }
    std::string path = std::filesystem::path(text).lexically_normal();
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

backend_settings read_settings(s_ekva *const *conf, backend_reports *reports) {
    backend_settings settings;
    const char *dirs = ekva_getval(conf, "vrc_dirs");
    for (std::string_view left = dirs ? dirs : ""; !left.empty();) {
        const size_t comma = std::min(left.find(','), left.size());
        std::string dir = clean_path(left.substr(0, comma), "vrc_dirs", reports);
        if (!dir.empty() && std::ranges::find(settings.dirs, dir) == settings.dirs.end()) {
            settings.dirs.push_back(std::move(dir));
        }
        left.remove_prefix(std::min(comma + 1, left.size()));
    }
    const char *cache = ekva_getval(conf, "vrc_dirs_cache");
    settings.cache = clean_path(cache ? cache : "/var/cache/vrm", "vrc_dirs_cache", reports);
    return settings;
}

void dirs_catalogue::load() {
    index_ = open_index(settings_.cache, &reports_);
    if (index_ && !index_->is_of(settings_.dirs)) {
        log_say(LEVEL_INFO, "vrc-dirs: the index is of other directories; a refresh is needed");
        index_ = nullptr;
    }
}

void dirs_catalogue::drop_if_damaged() {
    if (index_ && index_->is_damaged()) {
        reports_.warn("the index is damaged; a refresh is needed");
        index_ = nullptr;
    }
}

int dirs_catalogue::find(const search_request &request, vri ***out) {
    if (!index_) {
        return 0;
    }
    const std::vector<uint32_t> hits = search(*index_, request);
    own_vri_list list;
    if (!hits.empty() && hits.size() < INT_MAX && !index_->is_damaged()) {
        list = to_c_array<own_vri_list>(hits, [this](uint32_t hit) {
            index_->walked_to(hit);
            return index_->record(hit).release();
        });
    }
    drop_if_damaged();
    if (!list || !index_) {
        return 0;
    }
    *out = list.release();
    return static_cast<int>(hits.size());
}

}  // namespace vrc_dirs
