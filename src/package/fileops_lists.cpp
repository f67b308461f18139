// The lists of permissions and of symbolic links that a package carries.
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "package/fileops.h"
#include "package/fileops_lists.h"
#include "support/boundary.h"
#include "support/event.h"
#include "support/file.h"
#include "support/log.h"
#include "support/own.h"
#include "support/text.h"

namespace {

constexpr size_t line_limit = 4095;
constexpr size_t field_limit = 2063;

// Reads a list of lines with a fixed number of fields each, separated by `|`.
template <size_t field_count>
class field_list {
 public:
    // `function` begins the messages; null for no messages.
    field_list(const char *path, const char *function) : path_(path), function_(function) {
        file_.reset(fopen_regular(path));
    }

    bool opened() const {
        return file_ != nullptr;
    }

    enum class line_kind { entry, refused, end };

    // Goes to the next line that isn't empty. For a refused line, which is logged, only the first
    // field is of use, and only to tell whether it was empty.
    line_kind next() {
        for (;;) {
            const char *refusal = nullptr;
            if (!read_line(&refusal)) {
                if (broke_off() && function_) {
                    report({.kind = event_kind::list_broke_off,
                            .who = function_,
                            .path = path_,
                            .error = errno});
                }
                return line_kind::end;
            }
            ++number_;
            const bool fits = split();
            if (!refusal && !fits) {
                refusal = "a field is longer than 2063 bytes";
            }
            if (refusal) {
                refusal_ = refusal;
                if (function_) {
                    report({.kind = event_kind::list_line_refused,
                            .who = function_,
                            .path = path_,
                            .other = refusal,
                            .number = static_cast<int64_t>(number_)});
                }
                return line_kind::refused;
            }
            if (!line_.empty()) {
                return line_kind::entry;
            }
            if (function_) {
                log_debug("%s: Skipping empty line no %d in %s", function_, number_, path_);
            }
        }
    }

    const std::string &field(size_t index) const {
        return fields_[index];
    }

    // The line that was read last, as one that is left out for a reason; null means the reason for
    // which it was refused.
    refused_line line_left_out(const char *why = nullptr) const {
        return {number_, why ? why : refusal_};
    }

    // Whether the list ended with a failure to read it, which is logged.
    bool broke_off() const {
        return ferror(file_.get()) != 0;
    }

 private:
    // Of an overlong line, the limit's worth is kept and the rest is passed over.
    bool read_line(const char **refusal) {
        line_.clear();
        size_t length = 0;
        int c;
        while ((c = getc_unlocked(file_.get())) != EOF && c != '\n') {
            if (c == '\0') {
                *refusal = "it holds a zero byte";
            }
            if (++length <= line_limit) {
                line_.push_back(static_cast<char>(c));
            } else {
                *refusal = "it is longer than 4095 bytes";
            }
        }
        // Of a line that could not be read to its end nothing is applied.
        return c != EOF || (length > 0 && !broke_off());
    }

    // A separator behind the last field goes back to that field's first byte, and what follows is
    // written over what stands there.
    bool split() {
        for (std::string &field : fields_) {
            field.clear();
        }
        size_t index = 0, at = 0;
        for (const char c : line_) {
            if (c == '|') {
                at = 0;
                if (index + 1 < field_count) {
                    ++index;
                }
                continue;
            }
            if (at == field_limit) {
                return false;
            }
            std::string &field = fields_[index];
            if (at < field.size()) {
                field[at] = c;
            } else {
                field.push_back(c);
            }
            ++at;
        }
        return true;
    }

    const char *path_;
    const char *function_;
    own_file file_;
    std::string line_;
    std::array<std::string, field_count> fields_;
    const char *refusal_ = "";
    int number_ = 0;
};

// The mode of octal digits, file type bits allowed as stat gives them. False with errno set if
// the text is no such number.
bool parse_mode(const std::string &text, mode_t *mode) {
    char *end;
    errno = 0;
    const unsigned long value = strtoul(text.c_str(), &end, 8);
    if (*end != '\0') {
        if (errno == 0) {
            errno = EINVAL;
        }
        return false;
    }
    if (value > (S_IFMT | 07777UL)) {
        errno = ERANGE;
        return false;
    }
    *mode = static_cast<mode_t>(value);
    return true;
}

}  // namespace

int vrm_vrf_perms(const char *path) {
    return guarded(-1, [&] {
        field_list<2> list(path, "vrm_vrf_perms");
        using line_kind = decltype(list)::line_kind;
        if (!list.opened()) {
            report({.kind = event_kind::perm_list_not_opened, .path = path});
            return -1;
        }
        int outcome = 0;
        for (line_kind read; (read = list.next()) != line_kind::end;) {
            if (read == line_kind::refused) {
                continue;
            }
            const std::string &file = list.field(0);
            const std::string &text = list.field(1);
            if (file.empty() || text.empty()) {
                log_debug("vrm_vrf_perms: Skipping entry, file or mode not properly specified");
                continue;
            }
            mode_t mode;
            if (!parse_mode(text, &mode)) {
                report({.kind = event_kind::perm_mode_invalid,
                        .path = file,
                        .other = text,
                        .error = errno});
                continue;
            }
            outcome = chmod(file.c_str(), mode);
            if (outcome != 0) {
                report({.kind = event_kind::perm_mode_not_set,
                        .path = file,
                        .other = text,
                        .error = errno});
            }
        }
        return list.broke_off() ? -1 : outcome;
    });
}

namespace {

// Changes to the directory of a line, and makes it first if it isn't there. False if that fails.
bool enter_directory(const std::string &directory, int *outcome) {
    struct stat info;
    *outcome = stat(directory.c_str(), &info);
    if (*outcome != 0) {
        std::string writable(directory);
        vrm_vrf_mkdir(writable.data(), 0755);
    }
    if (chdir(directory.c_str()) != 0) {
        report({.kind = event_kind::link_directory_not_entered, .path = directory});
        return false;
    }
    log_debug("vrm_vrf_links: Changed to directory %s.", directory.c_str());
    return true;
}

// A link that isn't there is the usual case of a first installation, so nothing of this is more
// than a DEBUG line.
void remove_link(const char *name, int *outcome) {
    log_debug("vrm_vrf_links: Will remove symbolic link named %s", name);
    struct stat info;
    *outcome = lstat(name, &info);
    if (*outcome != 0) {
        log_debug("vrm_vrf_links: %s does not exist, or is not accessible: %s", name,
                  strerror(errno));
        return;
    }
    if (!S_ISLNK(info.st_mode)) {
        log_debug("vrm_vrf_links: %s exists, but is not a symbolic link, refusing to delete", name);
        return;
    }
    *outcome = unlink(name);
    if (*outcome != 0) {
        log_debug("vrm_vrf_links: Failed to remove symbolic link named %s: %s", name,
                  strerror(errno));
    }
}

void create_link(const char *target, const char *name, int *outcome) {
    log_debug("vrm_vrf_links: Will create symbolic link named %s pointing to %s", name, target);
    *outcome = symlink(target, name);
    if (*outcome != 0) {
        report(
            {.kind = event_kind::link_not_created, .path = name, .other = target, .error = errno});
    }
}

// What a path means in a directory.
std::string path_in(const std::string &directory, const std::string &path) {
    return path.starts_with('/') ? path : directory + '/' + path;
}

// Goes through the list; the working directory is then the last one that could be reached. `entry`
// begins with the working directory.
int apply_links(field_list<3> &list, bool remove, bool create, link_entry entry,
                const link_condition &may_remove) {
    return guarded(-1, [&] {
        using line_kind = field_list<3>::line_kind;
        int outcome = 0;
        bool unreachable = false;
        for (line_kind read; (read = list.next()) != line_kind::end;) {
            const std::string &directory = list.field(0);
            if (read == line_kind::refused) {
                // The lines behind a directory that was refused must not land in the one before it.
                if (!directory.empty()) {
                    unreachable = true;
                }
                continue;
            }
            if (!directory.empty()) {
                unreachable = !enter_directory(directory, &outcome);
                if (!unreachable) {
                    entry.directory = path_in(entry.directory, directory);
                }
            }
            const std::string &target = entry.target = list.field(1);
            const std::string &name = entry.name = list.field(2);
            if (target.empty() || name.empty()) {
                continue;
            }
            if (unreachable) {
                log_debug("vrm_vrf_links: Skipping entry, as directory could not be reached");
                continue;
            }
            if (remove && may_remove && !may_remove(entry)) {
                log_debug("vrm_vrf_links: Will not remove symbolic link named %s", name.c_str());
            } else if (remove) {
                remove_link(name.c_str(), &outcome);
            }
            if (create) {
                create_link(target.c_str(), name.c_str(), &outcome);
            }
        }
        return list.broke_off() ? -1 : outcome;
    });
}

}  // namespace

int apply_link_list(const char *path, bool remove, bool create, const link_condition &may_remove) {
    return guarded(-1, [&] {
        const own_string start(getcwd(nullptr, 0));
        if (!start) {
            report({.kind = event_kind::link_directory_unknown});
            return -1;
        }
        field_list<3> list(path, "vrm_vrf_links");
        if (!list.opened()) {
            report({.kind = event_kind::link_list_not_opened, .path = path});
            return -1;
        }
        const int outcome = apply_links(list, remove, create, {start.get(), {}, {}}, may_remove);
        if (chdir(start.get()) != 0) {
            report({.kind = event_kind::link_directory_lost, .path = start.get()});
            return -1;
        }
        return outcome;
    });
}

int vrm_vrf_links(const char *path, int remove, int create) {
    return apply_link_list(path, remove != 0, create != 0, nullptr);
}

// Why a line of a link list can't be compared with the disk; null when it can. The directory is
// the one that counts for the line, empty for the working directory of whoever applies the list.
static const char *reason_against(const std::string &directory, const std::string &name) {
    const std::string last = base_name(name);
    if (last.empty() || last == "." || last == "..") {
        return "its name is not one that a link can have";
    }
    return directory.starts_with('/') || name.starts_with('/') ? nullptr
                                                               : "it has no absolute directory";
}

bool read_link_list(const std::string &path, std::vector<link_entry> *entries,
                    std::vector<refused_line> *refused) {
    const own_string start(refused ? strdup("") : getcwd(nullptr, 0));
    if (!start) {
        return false;
    }
    field_list<3> list(path.c_str(), nullptr);
    if (!list.opened()) {
        return false;
    }
    using line_kind = field_list<3>::line_kind;
    std::string directory = start.get();
    bool unreachable = false;
    const auto refuse = [&](const char *why) {
        if (refused) {
            refused->push_back(list.line_left_out(why));
        }
    };
    for (line_kind read; (read = list.next()) != line_kind::end;) {
        if (!list.field(0).empty()) {
            unreachable = read == line_kind::refused;
            if (!unreachable) {
                directory = directory.empty() ? list.field(0) : path_in(directory, list.field(0));
            }
        }
        if (read == line_kind::refused) {
            refuse(nullptr);
        } else if (!unreachable && !list.field(1).empty() && !list.field(2).empty()) {
            const char *why = refused ? reason_against(directory, list.field(2)) : nullptr;
            if (why) {
                refuse(why);
            } else {
                entries->push_back({directory, list.field(1), list.field(2)});
            }
        }
    }
    return !list.broke_off();
}

bool read_perm_list(const std::string &path, std::vector<perm_entry> *entries,
                    std::vector<refused_line> *refused) {
    field_list<2> list(path.c_str(), nullptr);
    if (!list.opened()) {
        return false;
    }
    using line_kind = field_list<2>::line_kind;
    for (line_kind read; (read = list.next()) != line_kind::end;) {
        const std::string &file = list.field(0), &text = list.field(1);
        mode_t mode;
        if (read == line_kind::refused) {
            refused->push_back(list.line_left_out());
        } else if (file.empty() || text.empty()) {
            continue;
        } else if (!file.starts_with('/')) {
            refused->push_back(list.line_left_out("its path is not absolute"));
        } else if (!parse_mode(text, &mode)) {
            refused->push_back(list.line_left_out("its mode is not an octal number"));
        } else {
            entries->push_back({file, mode & 07777});
        }
    }
    return !list.broke_off();
}

std::string link_resolver::place_of(const link_entry &entry) {
    return place_of(path_in(entry.directory, entry.name));
}

// A directory with a slash at its end.
std::string link_resolver::resolve(const std::string &directory) const {
    const auto normal = std::filesystem::path(directory).lexically_normal();
    std::error_code failed = std::make_error_code(std::errc::invalid_argument);
    std::filesystem::path resolved;
    std::filesystem::path above = normal.has_filename() ? normal : normal.parent_path();
    while (above.has_relative_path() && !directories_to_be_.contains(above.native())) {
        above = above.parent_path();
    }
    if (!above.has_relative_path()) {
        resolved = std::filesystem::weakly_canonical(directory, failed);
    }
    std::string text = (failed ? normal : resolved).string();
    return text.ends_with('/') ? text : text + '/';
}

std::string link_resolver::place_of(const std::string &path) {
    const size_t slash = path.rfind('/');
    const std::string name = path.substr(slash + 1);
    if (name.empty() || name == "." || name == "..") {
        return "";
    }
    const auto [known, is_new] = directories_.try_emplace(path.substr(0, slash + 1));
    if (is_new) {
        known->second = resolve(known->first);
    }
    return known->second + name;
}
