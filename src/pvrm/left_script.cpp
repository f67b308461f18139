#include "pvrm/left_script.h"

#include <charconv>
#include <cstring>
#include <string>

#include "pvrm/config_keys.h"
#include "pvrm/lock_wait.h"
#include "pvrm/tell.h"
#include "repository/repository.h"
#include "repository/running_script.h"
#include "support/log.h"
#include "support/own.h"
#include "support/vconf.h"

// "99-add.sh of hello (process 1234)"
static std::string text_of(const running_script &script) {
    const bool is_hook = script.command.starts_with('/');
    return (is_hook ? "the hook \"" + script.command + "\"" : script.command) +
           (script.package.empty() ? "" : " of " + script.package) + " (process " +
           std::to_string(script.process) + ")";
}

// The script of the note, if it is there and can be believed.
static std::optional<running_script> script_of(const vrm_handle *handle) {
    std::string why;
    auto script = read_running_script(handle, &why);
    if (!why.empty()) {
        tell_warning("%s is ignored: %s", running_script_path(handle).c_str(), why.c_str());
    }
    return script;
}

static unsigned seconds_to_wait(const vrm_handle *handle) {
    const config_key *const key = find_config_key("script_wait");
    const own_ekva config(vconf_read(nullptr, handle->conf));
    const char *const set = ekva_getval(config.get(), key->name);
    std::string value = set ? set : key->default_value;
    const std::string why = key->refuses(value);
    if (!why.empty()) {
        tell_warning("%s of %s can't be \"%s\": %s; %s is used", key->name, handle->conf,
                     value.c_str(), why.c_str(), key->default_value);
        value = key->default_value;
    }
    unsigned seconds = 0;
    std::from_chars(value.data(), value.data() + value.size(), seconds);
    return seconds;
}

static exit_status await(const vrm_handle *handle, const running_script &script) {
    const std::string text = text_of(script);
    const unsigned seconds = seconds_to_wait(handle);
    log_say(LEVEL_INFO, "waiting for %.1800s", text.c_str());
    tell_problem("waiting for %s, which was left running when pvrm was killed", text.c_str());
    const exit_status ended =
        wait_while([&script] { return still_runs(script); }, wait_end(seconds));
    if (ended != EXIT_LOCKED) {
        return ended;
    }
    tell_problem(
        "%s has not ended within %u s: nothing was changed; end that process, or try again when it "
        "has ended",
        text.c_str(), seconds);
    return EXIT_LOCKED;
}

exit_status await_left_script(const vrm_handle *handle) {
    const auto script = script_of(handle);
    if (script && still_runs(*script)) {
        if (const exit_status refused = await(handle, *script)) {
            return refused;
        }
    }
    drop_running_script(handle);
    return EXIT_DONE;
}

void warn_of_running_script(vrm_handle *handle) {
    const auto script = script_of(handle);
    // A change that holds the lock sees to its own script.
    if (script && still_runs(*script) && vrm_lock_holder(handle) == 0) {
        tell_warning("%s still runs; a change waits until it has ended", text_of(*script).c_str());
    }
}
