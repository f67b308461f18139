// A refresh: what the directories hold, what of it is known, and the reading of the rest.
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <deque>
#include <unordered_map>
#include <utility>

#include "backends/vrc-dirs/catalogue.h"
#include "backends/vrc-dirs/fetch.h"
#include "backends/vrc-dirs/index_file.h"
#include "backends/vrc-dirs/scan.h"
#include "package/vrf.h"
#include "support/file.h"
#include "support/log.h"
#include "support/own.h"

namespace vrc_dirs {

namespace {

constexpr uint32_t no_record = UINT32_MAX;

// Whether the bytes of a file of that size can be had. What is no package as long as a disk or a
// server fails may be one afterwards, and neither its size nor its time will tell. The reason of a
// failure is in errno.
bool is_readable(int file, uint64_t size) {
    std::array<char, 65536> block;
    uint64_t done = 0;
    for (;;) {
        const ssize_t got = read_some(file, block.data(), block.size());
        done += got > 0 ? static_cast<uint64_t>(got) : 0;
        if (got <= 0 || done >= size) {
            return got >= 0;
        }
    }
}

// The files that an index knows, by path. An index that is damaged anywhere knows none: what goes
// on into the next index would not be mended before the file changes.
class known_files {
 public:
    explicit known_files(const catalogue_index &index) : index_(&index) {
        files_.reserve(size_t{index.records()} + index.skipped());
        for (uint32_t number = 0; number < index.records(); number++) {
            if (!index.is_sound(number)) {
                files_.clear();
                return;
            }
            const record_details details = index.details(number);
            files_[details.path] = {details.stamp, number};
        }
        for (const catalogue_index::skipped_file &file : index.skipped_files()) {
            files_[file.path] = {file.stamp, no_record};
        }
        is_sound_ = !index.is_damaged();
    }
    bool is_sound() const {
        return is_sound_;
    }
    struct known_file {
        file_stamp stamp;
        uint32_t number;  // of the record; no_record when the file is no package
    };
    // The file if it is still the one that was read, else null.
    const known_file *find(const found_file &file) const {
        const auto found = files_.find(file.path);
        return found != files_.end() && found->second.stamp == file.stamp ? &found->second
                                                                          : nullptr;
    }
    size_t count() const {
        return files_.size();
    }
    const catalogue_index &index() const {
        return *index_;
    }

 private:
    const catalogue_index *index_;
    bool is_sound_ = false;
    std::unordered_map<std::string_view, known_file> files_;
};

// Puts the next index together.
class record_collector {
 public:
    explicit record_collector(backend_reports *reports) : reports_(reports) {}

    // True when the file was known to the source.
    bool take_known(const known_files &source, const found_file &file) {
        const known_files::known_file *known = source.find(file);
        if (!known) {
            return false;
        }
        if (known->number == no_record) {
            skip(file);
        } else {
            const catalogue_index &index = source.index();
            records_.push_back({index.text(text_column::name, known->number),
                                index.text(text_column::description, known->number), file.path,
                                index.rest(known->number), file.relative_at});
        }
        return true;
    }

    // Reads a file. False when it can't be told now what it is; that is nothing to remember.
    bool read(const found_file &file) {
        const char *path = file.path.c_str();
        // A package that nobody could fetch is not worth the reading, which takes seconds even of a
        // sparse file.
        if (file.stamp.size > largest_fetch) {
            skip(file);
            return true;
        }
        const own_fd opened(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
        own_vri info(opened.valid() ? vrm_vrf_info(nullptr, path, 0) : nullptr);
        const bool whole = info && info->filehash;
        if (!opened.valid() || (!whole && !is_readable(opened.get(), file.stamp.size))) {
            reports_->skipped_file(file.path, errno);
            return false;
        }
        struct stat status = {};
        if (stat(path, &status) != 0 || stamp_of(status) != file.stamp) {
            reports_->skipped_file(file.path, "it changed while it was read");
            return false;
        }
        if (!info) {
            skip(file);
            return true;
        }
        const own_vri &kept = infos_.emplace_back(std::move(info));
        const std::string &rest = rests_.emplace_back(rest_of(*kept, file.path, file.stamp));
        records_.push_back({kept->name, kept->description, file.path, rest, file.relative_at});
        return true;
    }

    std::string index_bytes(const std::vector<std::string> &dirs) && {
        return make_index(dirs, std::move(records_), skipped_);
    }

 private:
    void skip(const found_file &file) {
        if (file.stamp.size > largest_fetch) {
            reports_->skipped_file(file.path, "too large: " + std::to_string(file.stamp.size) +
                                                  " bytes, and a fetch delivers less than 2 GiB");
        } else {
            reports_->damaged_file(file.path);
        }
        skipped_.push_back({file.path, file.stamp});
    }

    backend_reports *reports_;
    std::vector<new_record> records_;
    std::vector<new_skip> skipped_;
    // What the views of records that were read are views of.
    std::deque<own_vri> infos_;
    std::deque<std::string> rests_;
};

}  // namespace

void dirs_catalogue::store() {
    if (!store_index(settings_.cache, index_->bytes(), &reports_)) {
        return;
    }
    // From here on it needs no memory of ours, unless someone else has just put another there.
    auto stored = open_index(settings_.cache, &reports_);
    if (stored && stored->is_of(settings_.dirs)) {
        index_ = std::move(stored);
    }
}

bool dirs_catalogue::refresh() {
    if (settings_.dirs.empty()) {
        reports_.fail("vrc_dirs names no directory");
        return false;
    }
    const scan_result found = scan(settings_.dirs, &reports_);
    if (found.directories_read == 0) {
        // Each of them was reported.
        log_say(LEVEL_ERROR, "vrc-dirs: none of the configured directories can be read");
        return false;
    }

    // Another process may have left a newer index since. A mapped one of ours is its predecessor
    // and has nothing to add; one in memory has. What was read of a file holds for any list of
    // directories.
    std::unique_ptr<catalogue_index> on_disk = open_index(settings_.cache, &reports_);
    const bool ours_adds = index_ && !(on_disk && index_->is_mapped());
    std::vector<known_files> sources;
    for (const catalogue_index *index : {on_disk.get(), ours_adds ? index_.get() : nullptr}) {
        if (!index) {
            continue;
        }
        known_files files(*index);
        if (files.is_sound()) {
            sources.push_back(std::move(files));
        }
    }

    record_collector collector(&reports_);
    std::vector<size_t> taken(sources.size());
    size_t fresh = 0;
    for (const found_file &file : found.files) {
        bool known = false;
        for (size_t i = 0; i < sources.size() && !known; i++) {
            known = collector.take_known(sources[i], file);
            taken[i] += known ? 1 : 0;
        }
        if (!known && collector.read(file)) {
            fresh++;
        }
    }
    log_debug("vrc-dirs: %zu package files, %zu of them read", found.files.size(), fresh);

    for (size_t i = 0; i < sources.size(); i++) {
        const catalogue_index &index = sources[i].index();
        const bool is_current =
            fresh == 0 && taken[i] == sources[i].count() && index.is_of(settings_.dirs);
        if (!is_current) {
            continue;
        }
        if (&index == on_disk.get()) {
            index_ = std::move(on_disk);
            return true;
        }
        // A mapped one whose file is gone is put together anew, so that it can be stored.
        if (!index.is_mapped()) {
            store();
            return true;
        }
    }
    auto next = catalogue_index::in_memory(std::move(collector).index_bytes(settings_.dirs));
    if (!next) {
        return false;
    }
    index_ = std::move(next);
    store();
    return true;
}

}  // namespace vrc_dirs
