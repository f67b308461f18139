#include "maintenance/place_audit.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <optional>
#include <set>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "repository/inventory.h"
#include "support/ekva.h"
#include "support/event.h"
#include "support/own.h"
#include "transaction/interrupt.h"

namespace {

const char *kind_text(mode_t mode) {
    switch (mode & S_IFMT) {
        case S_IFREG:
            return "file";
        case S_IFDIR:
            return "directory";
        case S_IFLNK:
            return "link";
        default:
            return "pipe, socket or device";
    }
}

std::string octal(mode_t mode) {
    std::array<char, 8> text;
    snprintf(text.data(), text.size(), "%04o", mode & 07777U);
    return text.data();
}

bool nothing_is_there(int error) {
    return error == ENOENT || error == ENOTDIR;
}

// One entry of the inventory beside the disk.
class entry_comparison {
 public:
    entry_comparison(vrm_handle *handle, const std::string &entry, link_resolver *resolver,
                     const listed_modes *modes)
        : handle_(handle), entry_(entry), resolver_(resolver), modes_(modes) {
        path_ = std::string(ekva_getval(handle->dirs, "installed")) + "/" + entry;
    }

    std::string list(const char *name) const {
        return path_ + "/" + name;
    }
    finding_list take_findings() {
        return std::move(findings_);
    }

    void refused(const std::string &list, const std::vector<refused_line> &lines);
    // With errno as the reason; a list that is missing is not a difference.
    void unread(const std::string &list);
    void compare_link(const std::string &place, const std::string &target);
    void compare_modes(bool with_files);
    void compare_files();

 private:
    struct listed_mode {
        std::string path;
        mode_t listed, found;
    };
    using file_id = std::pair<dev_t, ino_t>;

    void add(event found) {
        found.package = entry_;
        findings_.emplace_back(found);
    }
    void not_seen(const std::string &path, int error) {
        add({.kind = event_kind::place_not_seen, .path = path, .error = error});
    }
    const std::unordered_set<std::string> &files();
    bool brings_file_at(const std::string &place);
    bool is_configuration(const std::string &path) const;
    bool is_allowed(const listed_mode &mode) const;

    vrm_handle *handle_;
    const std::string &entry_;
    link_resolver *resolver_;
    std::string path_;
    const listed_modes *modes_;
    std::optional<std::unordered_set<std::string>> files_, places_of_files_;
    std::set<file_id> with_mode_;
    finding_list findings_;
};

void entry_comparison::refused(const std::string &list, const std::vector<refused_line> &lines) {
    for (const refused_line &line : lines) {
        add({.kind = event_kind::list_line_not_compared,
             .path = list,
             .other = line.why,
             .number = line.number});
    }
}

void entry_comparison::unread(const std::string &list) {
    if (errno != ENOENT) {
        add({.kind = event_kind::list_not_compared, .path = list, .error = errno});
    }
}

// The data files that the package owns, read at the first question. Of an entry with the record of
// another package they are not known.
const std::unordered_set<std::string> &entry_comparison::files() {
    if (files_) {
        return *files_;
    }
    files_.emplace();
    const own_vri info(vrm_vrl_own_info(handle_, entry_.c_str()));
    if (!info) {
        return *files_;
    }
    const own_array listed(vrm_vrl_file_list(handle_, info.get()));
    if (!listed && errno != 0) {
        unread(std::string(ekva_getval(handle_->dirs, "fileindex")) + "/" + entry_);
    }
    for (char *const *file = listed.get(); file && *file; file++) {
        files_->emplace(*file);
    }
    return *files_;
}

bool entry_comparison::brings_file_at(const std::string &place) {
    if (!places_of_files_) {
        places_of_files_ = files();
        for (const std::string &file : files()) {
            if (vrm_stop_requested) {
                break;
            }
            places_of_files_->insert(resolver_->place_of(file));
        }
    }
    return places_of_files_->contains(place);
}

bool entry_comparison::is_configuration(const std::string &path) const {
    struct stat status;
    return lstat((path_ + "/conf" + path).c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

void entry_comparison::compare_link(const std::string &place, const std::string &target) {
    struct stat status;
    if (lstat(place.c_str(), &status) != 0) {
        if (nothing_is_there(errno)) {
            add({.kind = event_kind::link_missing, .path = place, .other = target});
        } else {
            not_seen(place, errno);
        }
        return;
    }
    if (!S_ISLNK(status.st_mode)) {
        if (!S_ISREG(status.st_mode) || !brings_file_at(place)) {
            add({.kind = event_kind::link_place_taken,
                 .path = place,
                 .other = target,
                 .found = kind_text(status.st_mode)});
        }
        return;
    }
    std::array<char, PATH_MAX> text;
    const ssize_t length = readlink(place.c_str(), text.data(), text.size());
    if (length < 0) {
        not_seen(place, errno);
        return;
    }
    const std::string_view found(text.data(), static_cast<size_t>(length));
    if (found != target) {
        add({.kind = event_kind::link_retargeted, .path = place, .other = target, .found = found});
    }
}

// An administrator may restrict a configuration file further, and of several packages that list a
// path the one that was changed last has set the mode.
bool entry_comparison::is_allowed(const listed_mode &mode) const {
    return mode.found == mode.listed ||
           ((mode.found & ~mode.listed) == 0 && is_configuration(mode.path)) ||
           modes_->is_listed_elsewhere(entry_, mode.path, mode.found);
}

void entry_comparison::compare_modes(bool with_files) {
    std::vector<perm_entry> entries;
    std::vector<refused_line> lines;
    const std::string list_path = list("perm.txt");
    if (!read_perm_list(list_path, &entries, &lines)) {
        unread(list_path);
    }
    refused(list_path, lines);

    // Two paths may lead to one file. It has the mode of the last line.
    std::vector<listed_mode> modes;
    std::map<file_id, size_t> known;
    std::set<std::string> missing;
    for (perm_entry &entry : entries) {
        if (vrm_stop_requested) {
            return;
        }
        struct stat status;
        if (stat(entry.path.c_str(), &status) == 0) {
            const file_id id(status.st_dev, status.st_ino);
            const auto [at, is_new] = known.try_emplace(id, modes.size());
            if (is_new) {
                modes.emplace_back();
                with_mode_.insert(id);
            }
            modes[at->second] = {std::move(entry.path), entry.mode, status.st_mode & 07777U};
        } else if (!nothing_is_there(errno)) {
            not_seen(entry.path, errno);
        } else if (missing.insert(entry.path).second) {
            // The hash audit has reported the files that it knows.
            const bool reported =
                with_files && (is_configuration(entry.path) || files().contains(entry.path));
            if (!reported) {
                add({.kind = event_kind::mode_path_missing,
                     .path = entry.path,
                     .other = octal(entry.mode)});
            }
        }
    }
    for (const listed_mode &mode : modes) {
        if (!is_allowed(mode)) {
            add({.kind = event_kind::mode_changed,
                 .path = mode.path,
                 .other = octal(mode.listed),
                 .found = octal(mode.found)});
        }
    }
}

// Of files without a listed mode; the audits of hashes and links report what is missing.
void entry_comparison::compare_files() {
    for (const std::string &file : files()) {
        if (vrm_stop_requested) {
            return;
        }
        struct stat status;
        if (stat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
            (status.st_mode & S_IWOTH) != 0 &&
            !with_mode_.contains(file_id(status.st_dev, status.st_ino))) {
            add({.kind = event_kind::file_open_to_all,
                 .path = file,
                 .found = octal(status.st_mode)});
        }
    }
}

}  // namespace

bool listed_modes::is_listed_elsewhere(const std::string &entry, const std::string &path,
                                       mode_t mode) const {
    if (!was_read_) {
        was_read_ = true;
        installed_walk walk(handle_);
        while (walk.is_open() && !vrm_stop_requested && walk.next()) {
            std::vector<perm_entry> entries;
            std::vector<refused_line> refused;
            // A list that can't be read is a finding of its own entry.
            static_cast<void>(read_perm_list(walk.path() + "/perm.txt", &entries, &refused));
            for (perm_entry &listed : entries) {
                by_path_[std::move(listed.path)][walk.name()] = listed.mode;
            }
        }
    }
    const auto at = by_path_.find(path);
    return at != by_path_.end() &&
           std::any_of(at->second.begin(), at->second.end(), [&](const auto &listed) {
               return listed.first != entry && listed.second == mode;
           });
}

bool place_audit::read_links(const std::string &list, target_by_place *links,
                             std::vector<refused_line> *refused) {
    std::vector<link_entry> entries;
    const bool whole = read_link_list(list, &entries, refused);
    const int reason = errno;
    for (link_entry &entry : entries) {
        if (vrm_stop_requested) {
            break;
        }
        const std::string place = resolver_.place_of(entry);
        places_.insert(place);
        (*links)[place] = std::move(entry.target);
    }
    errno = reason;
    return whole;
}

void place_audit::remember_links(const std::string &entry) {
    const entry_comparison comparison(handle_, entry, &resolver_, modes_);
    target_by_place links;
    std::vector<refused_line> refused;
    read_links(comparison.list("link.txt"), &links, &refused);
}

finding_list place_audit::compare(const std::string &entry, bool with_files) {
    entry_comparison comparison(handle_, entry, &resolver_, modes_);
    target_by_place links;
    std::vector<refused_line> refused;
    const std::string list = comparison.list("link.txt");
    if (!read_links(list, &links, &refused)) {
        comparison.unread(list);
    }
    comparison.refused(list, refused);
    for (const auto &[place, target] : links) {
        if (vrm_stop_requested) {
            break;
        }
        comparison.compare_link(place, target);
    }
    comparison.compare_modes(with_files);
    if (with_files) {
        comparison.compare_files();
    }
    return comparison.take_findings();
}
