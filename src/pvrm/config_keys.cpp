#include "pvrm/config_keys.h"

#include <strings.h>
#include <sys/stat.h>

#include <cerrno>
#include <charconv>
#include <cstring>

#include "pvrm/left_script.h"
#include "repository/vrc.h"
#include "support/arch.h"
#include "support/own.h"
#include "support/text.h"

namespace {

std::string refuses_nothing(const std::string &) {
    return "";
}

std::string refuses_architecture(const std::string &value) {
    const int id = vrm_arch_getid(value.c_str());
    if (id == arch_unknown) {
        return "there is no such architecture";
    }
    // Packages are built for any machine, but no machine is any.
    return id == arch_any ? "a machine is i686, x86_64 or mips" : "";
}

std::string refuses_backend(const std::string &value) {
    const std::string name = base_name(value);
    const std::string path = std::string(vrm_backend_dir) + "/" + name;
    struct stat status;
    if (name.empty() || stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return std::string("there is no such backend in ") + vrm_backend_dir;
    }
    void *const library = vrm_vrc_load(path.c_str());
    if (!library) {
        return path + " can't be loaded as a backend";
    }
    vrm_vrc_close(library);
    return "";
}

std::string refuses_directory(const std::string &path, bool may_be_missing) {
    if (!path.starts_with('/')) {
        return path + " is no absolute path";
    }
    struct stat status;
    if (stat(path.c_str(), &status) != 0) {
        return may_be_missing && errno == ENOENT ? "" : path + ": " + strerror(errno);
    }
    return S_ISDIR(status.st_mode) ? "" : path + " is no directory";
}

std::string refuses_directories(const std::string &value) {
    const own_array dirs(str2arr(value.c_str(), ','));
    int named = 0;
    for (char **dir = dirs.get(); dir && *dir; dir++) {
        _trim_val(*dir);
        if ((*dir)[0] == '\0') {
            continue;
        }
        named++;
        std::string why = refuses_directory(*dir, false);
        if (!why.empty()) {
            return why;
        }
    }
    return named == 0 ? "it names no directory" : "";
}

// The backend makes it when it is not there.
std::string refuses_cache(const std::string &value) {
    return refuses_directory(value, true);
}

std::string refuses_seconds(const std::string &value) {
    unsigned seconds = 0;
    const char *const end = value.data() + value.size();
    const auto result = std::from_chars(value.data(), end, seconds);
    const bool good = result.ec == std::errc() && result.ptr == end && seconds <= most_script_wait;
    return good ? ""
                : "it is not a number of seconds from 0 to " + std::to_string(most_script_wait);
}

constexpr config_key keys[] = {
    {"arch_name", nullptr, nullptr, refuses_architecture},
    {"dist_name", nullptr, nullptr, refuses_nothing},
    {"dist_vers", nullptr, nullptr, refuses_nothing},
    {"script_wait", default_script_wait, nullptr, refuses_seconds},
    {"vrc_backend", vrm_default_backend, nullptr, refuses_backend},
    {"vrc_dirs", nullptr, "vrc-dirs.so", refuses_directories},
    {"vrc_dirs_cache", "/var/cache/vrm", "vrc-dirs.so", refuses_cache},
};

}  // namespace

std::span<const config_key> config_keys() {
    return keys;
}

const config_key *find_config_key(const std::string &name) {
    for (const config_key &key : keys) {
        if (strcasecmp(key.name, name.c_str()) == 0) {
            return &key;
        }
    }
    return nullptr;
}
