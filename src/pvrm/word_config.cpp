#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "pvrm/columns.h"
#include "pvrm/config_change.h"
#include "pvrm/config_keys.h"
#include "pvrm/interruption.h"
#include "pvrm/session.h"
#include "pvrm/tell.h"
#include "pvrm/words.h"
#include "repository/repository.h"
#include "repository/vrc.h"
#include "support/log.h"
#include "support/own.h"
#include "support/terminal_text.h"
#include "support/text.h"
#include "support/vconf.h"

namespace {

struct without_case {
    bool operator()(const std::string &a, const std::string &b) const {
        return strcasecmp(a.c_str(), b.c_str()) < 0;
    }
};

// What counts for a key: its last line.
struct setting {
    std::string key, value, path;
    int line = 0;
};

struct configuration {
    std::map<std::string, setting, without_case> settings;
    std::vector<std::string> order;  // the keys as they first come

    const setting *find(const std::string &key) const {
        const auto found = settings.find(key);
        return found == settings.end() ? nullptr : &found->second;
    }
    // False with the reason told.
    bool read();
};

void take_pair(const char *key, const char *value, const char *path, int line, void *context) {
    auto *const config = static_cast<configuration *>(context);
    if (!config->settings.contains(key)) {
        config->order.emplace_back(key);
    }
    config->settings[key] = {key, value, path, line};
}

bool configuration::read() {
    struct stat status;
    if (access(vrm_default_conf, R_OK) != 0 || stat(vrm_default_conf, &status) != 0) {
        const char *const advice =
            errno == ENOENT ? "; /usr/share/vrm/vrm.conf.sample shows a good one" : "";
        tell_problem("%s can't be read: %s%s", vrm_default_conf, strerror(errno), advice);
        return false;
    }
    const bool empty = S_ISREG(status.st_mode) && status.st_size == 0;
    if (!vconf_walk(vrm_default_conf, take_pair, this) && !empty) {
        tell_problem("%s can't be read", vrm_default_conf);
        return false;
    }
    return true;
}

std::string place_of(const setting &found) {
    return found.path + ":" + std::to_string(found.line);
}

const char *default_of(const std::string &key) {
    const config_key *known = find_config_key(key);
    return known ? known->default_value : nullptr;
}

// The keys that mean something: those of the engine, those of the backend in use, and whatever else
// the file has.
std::vector<std::string> keys_to_show(const configuration &config) {
    const setting *chosen = config.find("vrc_backend");
    const std::string backend = chosen ? base_name(chosen->value) : vrm_default_backend;
    std::vector<std::string> keys;
    for (const config_key &key : config_keys()) {
        if (!key.backend || key.backend == backend || config.find(key.name)) {
            keys.emplace_back(key.name);
        }
    }
    for (const std::string &key : config.order) {
        if (!find_config_key(key)) {
            keys.push_back(key);
        }
    }
    return keys;
}

void show_all(const configuration &config) {
    std::vector<std::vector<std::string>> rows;
    for (const std::string &key : keys_to_show(config)) {
        if (const setting *found = config.find(key)) {
            rows.push_back({key, found->value, place_of(*found)});
        } else if (const char *value = default_of(key)) {
            rows.push_back({key, value, "default"});
        } else {
            rows.push_back({key, "-", "not set"});
        }
    }
    print_columns(rows);
}

bool is_key(const configuration &config, const std::string &key) {
    if (find_config_key(key) || config.find(key)) {
        return true;
    }
    std::string known;
    for (const std::string &one : keys_to_show(config)) {
        known += (known.empty() ? "" : ", ") + one;
    }
    tell_problem(
        "there is no key %s; the keys are %s; one that only another backend knows must be written "
        "into %s by hand for the first time",
        key.c_str(), known.c_str(), vrm_default_conf);
    return false;
}

exit_status show_one(const configuration &config, const std::string &key) {
    const setting *found = config.find(key);
    const char *value = found ? found->value.c_str() : default_of(key);
    if (!value) {
        tell_problem("%s is not set", key.c_str());
        return EXIT_FAILED;
    }
    puts(terminal_safe_cell(value).c_str());
    return EXIT_DONE;
}

// Whether the key can have the value, and can be given it here; tells when not.
bool may_change(const std::string &key, const std::string &value, const setting *present) {
    if (present && present->path != vrm_default_conf) {
        tell_problem("%s is set in line %d of %s, which %s includes: change it there", key.c_str(),
                     present->line, present->path.c_str(), vrm_default_conf);
        return false;
    }
    if (!config_text(value)) {
        tell_problem("%s can't be given this value: a line of the configuration can't hold it",
                     key.c_str());
        return false;
    }
    const config_key *known = find_config_key(key);
    const std::string why = known ? known->refuses(value) : "";
    if (!why.empty()) {
        tell_problem("%s can't be \"%s\": %s", key.c_str(), value.c_str(), why.c_str());
    }
    return why.empty();
}

// The file itself, where the path is a link: a change must not put a file in the link's place.
std::string real_path() {
    const own_string path(realpath(vrm_default_conf, nullptr));
    return path ? path.get() : vrm_default_conf;
}

exit_status change(const std::string &key, const std::string &value, const setting *present) {
    const std::string path = real_path();
    const std::string text = *config_text(value);
    if (!(present ? replace_in_config(path, key, text) : add_to_config(path, key, text))) {
        tell_problem("%s stays as it was", path.c_str());
        return EXIT_FAILED;
    }
    configuration changed;
    const setting *found = changed.read() ? changed.find(key) : nullptr;
    if (!found || found->value != value) {
        tell_problem("the new value can't be read back from %s; the old file is %s.prev",
                     path.c_str(), path.c_str());
        return EXIT_FAILED;
    }
    log_say(LEVEL_INFO, "set %.200s to \"%.1500s\"", key.c_str(), value.c_str());
    tell_step("set %s to \"%s\"; the old file is %s.prev", key.c_str(), value.c_str(),
              path.c_str());
    return EXIT_DONE;
}

exit_status change_unless_there(const common_options &options, const configuration &config,
                                const std::string &key, const std::string &value) {
    const setting *present = config.find(key);
    if (!may_change(key, value, present)) {
        return EXIT_FAILED;
    }
    if (present && present->value == value) {
        tell_step("%s is \"%s\" already", key.c_str(), value.c_str());
        return EXIT_DONE;
    }
    if (options.dry_run) {
        tell_step("would set %s to \"%s\" in %s", key.c_str(), value.c_str(), real_path().c_str());
        return EXIT_DONE;
    }
    return change(key, value, present);
}

}  // namespace

exit_status word_config(const common_options &options, const config_options &what) {
    const bool changes = what.has_value && !options.dry_run;
    if (changes) {
        hold_signals();
    }
    const session work(options);
    std::optional<config_lock> lock;
    if (changes && !lock.emplace(real_path()).held()) {
        tell_problem("another process is changing %s; try again when it has ended",
                     real_path().c_str());
        return EXIT_LOCKED;
    }
    configuration config;
    if (!config.read() || (what.has_key && !is_key(config, what.key))) {
        return EXIT_FAILED;
    }
    if (what.has_value) {
        // As the file spells it, or as it should.
        const setting *present = config.find(what.key);
        const config_key *known = find_config_key(what.key);
        const std::string key = known ? known->name : present->key;
        return change_unless_there(options, config, key, what.value);
    }
    if (what.has_key) {
        return show_one(config, what.key);
    }
    show_all(config);
    return EXIT_DONE;
}
