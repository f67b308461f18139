#include "repository/hooks.h"

#include <dirent.h>
#include <fnmatch.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "support/cmd.h"
#include "support/event.h"
#include "support/file.h"
#include "support/ldif.h"
#include "support/log.h"
#include "support/own.h"
#include "support/text.h"

int vrm_file_is_vrh(const char *path) {
    struct stat status;
    return strcmp(_get_filename_ext(path), "vrh") == 0 && stat(path, &status) == 0 &&
           S_ISREG(status.st_mode);
}

s_ekva **vrm_hook_read(const char *path) {
    size_t length;
    const own_string text(_read_file(path, &length));
    if (!text || length > INT32_MAX) {
        fprintf(stderr, "vrm_hook_read: failure reading %s\n", path);
        return nullptr;
    }
    text.get()[length] = '\0';
    return ldif2ekva(text.get(), static_cast<int32_t>(length));
}

s_ekva ***vrm_hooks_read(const char *dir) {
    const own_dir stream(opendir(dir));
    if (!stream) {
        return nullptr;
    }
    s_ekva ***hooks = nullptr;
    int count = 0;
    int capacity = 10;
    while (const dirent *entry = next_entry(stream)) {
        if (entry->d_type != DT_REG) {
            continue;
        }
        char path[4097];
        const int length = snprintf(path, sizeof path, "%s/%s", dir, entry->d_name);
        if (length < 0 || static_cast<size_t>(length) >= sizeof path) {
            fprintf(stderr, "vrm_hooks_read: Filename <%s/%s> too long, skipping entry", dir,
                    entry->d_name);
            continue;
        }
        if (!vrm_file_is_vrh(path)) {
            continue;
        }
        const own_ekva hook(vrm_hook_read(path));
        const int with_hook = ekva_list_add(&hooks, hook.get(), count, &capacity);
        if (with_hook == count) {  // also when there is no attribute in it
            fprintf(stderr, "vrm_hooks_read: error reading hook from <%s>\n", path);
        }
        count = with_hook;
    }
    if (errno != 0) {
        fprintf(stderr, "vrm_hooks_read: error reading <%s>: %s\n", dir, strerror(errno));
    }
    return hooks;
}

int vrm_hook_match_attr(s_ekva *const *package, const char *argument) {
    const own_string parsed(cmd_mask_parse(argument, package));
    if (!parsed) {
        return 0;
    }
    log_debug("vrm_hook_match_attr: parsed cond: <%s> = <%s>", argument, parsed.get());
    char *const equals = strchr(parsed.get(), '=');
    if (!equals) {
        report({.kind = event_kind::hook_condition_invalid, .other = parsed.get()});
        return 0;
    }
    *equals = '\0';
    const char *const pattern = equals + 1;
    const own_array values(ekva_getvals(package, parsed.get()));
    for (char **value = values.get(); value && *value; value++) {
        if (fnmatch(pattern, *value, 0) == 0) {
            log_debug("vrm_hook_match_attr: bingo, <%s> matches <%s>", *value, pattern);
            return 1;
        }
        log_debug("vrm_hook_match_attr: bongo, <%s> does not match <%s>", *value, pattern);
    }
    return 0;
}

int vrm_hook_match_file(s_ekva *const *package, const char *argument, char *const *files) {
    if (!files) {
        return 0;
    }
    const own_string pattern(cmd_mask_parse(argument, package));
    if (!pattern) {
        return 0;
    }
    log_debug("vrm_hook_match_file: parsed cond: <%s> = <%s>", argument, pattern.get());
    for (; *files; files++) {
        if (fnmatch(pattern.get(), *files, 0) == 0) {
            log_debug("vrm_hook_match_file: bingo, <%s> matches <%s>", *files, pattern.get());
            return 1;
        }
    }
    return 0;
}

namespace {

// What a condition is held against.
struct changed_package {
    s_ekva *const *attributes;
    char *const *data;
    char *const *conf;
    char *const *dump;
};

}  // namespace

// The condition of a hook, if the hook is fit to be tried, else null.
static const char *usable_condition(s_ekva *const *hook) {
    const char *const condition = ekva_getval(hook, "evrhCond");
    if (!condition) {
        report({.kind = event_kind::hook_without_condition});
        return nullptr;
    }
    if (!ekva_getval(hook, "evrhExec")) {
        report({.kind = event_kind::hook_without_command});
        return nullptr;
    }
    if (strlen(condition) < 6) {
        report({.kind = event_kind::hook_condition_short});
        return nullptr;
    }
    if (condition[4] != ':') {
        report({.kind = event_kind::hook_condition_malformed, .other = condition});
        return nullptr;
    }
    return condition;
}

static bool holds(const char *condition, const changed_package &package) {
    const std::string_view kind(condition, 4);
    const char *const argument = condition + 5;
    const auto got = [&](const char *name) {
        if (kind != name) {
            return false;
        }
        log_debug("vrm_hooks_parse: got %s cond: <%s>", name, argument);
        return true;
    };
    if (got("data")) {
        return vrm_hook_match_file(package.attributes, argument, package.data);
    }
    if (got("dump")) {
        return vrm_hook_match_file(package.attributes, argument, package.dump);
    }
    if (got("attr")) {
        return vrm_hook_match_attr(package.attributes, argument);
    }
    if (got("conf")) {
        return vrm_hook_match_file(package.attributes, argument, package.conf);
    }
    if (!got("info")) {
        report({.kind = event_kind::hook_kind_unknown,
                .other = std::string_view(condition).substr(0, 4)});
    }
    return false;
}

static bool is_pair(const s_ekva *pair, const char *key, const char *value) {
    return strcmp(pair->key, key) == 0 && pair->val && strcmp(pair->val, value) == 0;
}

// The command of a hook for a package, a new string, or null when the hook gives none.
static char *command_of(s_ekva *const *hook, const changed_package &package) {
    const char *const name = ekva_getval(hook, "evrhName");
    log_debug("vrm_hooks_parse: found hook named %s", name ? name : "(null)");
    const char *const condition = usable_condition(hook);
    if (!condition || !holds(condition, package)) {
        return nullptr;
    }
    own_string command(cmd_mask_parse(ekva_getval(hook, "evrhExec"), package.attributes));
    if (command) {
        log_debug("vrm_hooks_parse: we got a match, will add command: <%s>", command.get());
    }
    return command.release();
}

char **vrm_hooks_parse(vrm_handle *handle, const vri *info, int, const char *type,
                       char *const *data, char *const *conf, char *const *dump) {
    log_debug("vrm_hooks_parse: starting");
    const own_ekva attributes(vrk_info_ekva(info, 3));
    if (!handle->hooks) {
        log_debug("vrm_hooks_parse: no hooks.");
        return nullptr;
    }
    const int found = ekva_list_cnt_ekva(handle->hooks, "evrhType", type);
    log_debug("vrm_hooks_parse: found %d hook(-s) of type %s", found, type);
    if (found == 0) {
        return nullptr;
    }
    own_array commands(
        static_cast<char **>(calloc(static_cast<size_t>(found) + 1, sizeof(char *))));
    if (!commands) {
        return nullptr;
    }
    const changed_package package = {attributes.get(), data, conf, dump};
    int count = 0;
    // A hook counts once for each line that names the type.
    for (s_ekva ***hook = handle->hooks; *hook; hook++) {
        for (s_ekva **pair = *hook; *pair; pair++) {
            if (!is_pair(*pair, "evrhType", type)) {
                continue;
            }
            if (char *const command = command_of(*hook, package)) {
                commands.get()[count++] = command;
            }
        }
    }
    return count > 0 ? commands.release() : nullptr;
}
