#include "pvrm/config_change.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "pvrm/tell.h"
#include "support/atomic_file.h"
#include "support/file.h"
#include "support/own.h"
#include "support/text.h"
#include "support/vconf.h"

static std::string as_read(std::string text) {
    _clean_val(text.data());
    return text.c_str();
}

std::optional<std::string> config_text(const std::string &value) {
    const auto is_control = [](char c) {
        return (static_cast<unsigned char>(c) < 0x20 && c != '\t') || c == 0x7F;
    };
    if (std::any_of(value.begin(), value.end(), is_control)) {
        return std::nullopt;
    }
    std::string quoted = "\"";
    for (const char c : value) {
        quoted += c == '"' || c == '\'' ? std::string("\\") + c : std::string(1, c);
    }
    // Behind a backslash a closing quote would be none. A line may end without it.
    for (const std::string &text : {value, quoted + '"', quoted}) {
        if (as_read(text) == value) {
            return text;
        }
    }
    return std::nullopt;
}

// The directory, as the file itself is another one after each change.
config_lock::config_lock(const std::string &path)
    : dir_(open(std::filesystem::path(path).parent_path().c_str(),
                O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (dir_ >= 0 && flock(dir_, LOCK_EX | LOCK_NB) != 0) {
        close(dir_);
        dir_ = -1;
    }
}

config_lock::~config_lock() {
    if (dir_ >= 0) {
        close(dir_);
    }
}

bool config_lock::held() const {
    return dir_ >= 0;
}

static bool failed(const std::string &path) {
    tell_problem("%s can't be written: %s", path.c_str(), strerror(errno));
    return false;
}

// The old text with one line more, unless that is empty, as a file with the owner and the
// permissions of the old one.
static bool write_longer(const std::string &next, const std::string &path,
                         const std::string &line) {
    struct stat status;
    size_t size = 0;
    const own_string content(_read_file(path.c_str(), &size));
    if (!content || stat(path.c_str(), &status) != 0) {
        tell_problem("%s can't be read: %s", path.c_str(), strerror(errno));
        return false;
    }
    std::string text(content.get(), size);
    if (!line.empty()) {
        text += (text.empty() || text.ends_with('\n') ? "" : "\n") + line + "\n";
    }
    if (!write_new_file(next, text, 0600)) {
        return failed(next);
    }
    (void)!chown(next.c_str(), status.st_uid, status.st_gid);
    return chmod(next.c_str(), status.st_mode & 07777) == 0 || failed(next);
}

// Makes room for the old file. Whatever else somebody keeps under that name is not ours to remove.
static bool remove_previous(const std::string &prev) {
    struct stat status;
    if (lstat(prev.c_str(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISLNK(status.st_mode)) {
        tell_problem("%s is in the way of the old file, and is no regular file", prev.c_str());
        return false;
    }
    return unlink(prev.c_str()) == 0 || errno == ENOENT || failed(prev);
}

// Puts the next file in the place of the old one, which is kept by a second name first, so that
// there is a configuration at each moment.
static bool exchange(const std::string &next, const std::string &path) {
    const std::string prev = path + ".prev";
    if (!remove_previous(prev)) {
        return false;
    }
    if (link(path.c_str(), prev.c_str()) != 0 && file_copy(prev.c_str(), path.c_str(), 1) < 0) {
        return failed(prev);
    }
    return rename(next.c_str(), path.c_str()) == 0 || failed(path);
}

bool replace_in_config(const std::string &path, const std::string &key, const std::string &text) {
    const std::string next = path + ".next";
    unlink(next.c_str());  // what a process left that was killed
    own_ekva change(ekva_new(1, 2));
    add_pair(&change, key.c_str(), text.c_str());
    // The rewriter tells nothing of a failure to keep the old file, and so it gets a copy.
    if (!write_longer(next, path, "") || vconf_replace(next.c_str(), change.get(), 0) != 0 ||
        !exchange(next, path)) {
        unlink(next.c_str());
        return false;
    }
    return true;
}

bool add_to_config(const std::string &path, const std::string &key, const std::string &text) {
    const std::string next = path + ".next";
    unlink(next.c_str());  // what a process left that was killed
    if (!write_longer(next, path, key + "=" + text) || !exchange(next, path)) {
        unlink(next.c_str());
        return false;
    }
    return true;
}
