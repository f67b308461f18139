#include "gui/model/tool_command.h"

#include <string_view>

#include "package/safe_name.h"
#include "support/log.h"
#include "support/own.h"
#include "support/terminal_text.h"

// Weak, so that a test can link another path.
[[gnu::weak]] extern const char *const pvrm_path = "/usr/sbin/pvrm";

static std::string tool() {
    return std::string(std::string_view(pvrm_path).substr(0, 254));
}

// Why a name can't be a word of a command line, null when it can.
static const char *fault_of_word(const char *name) {
    // In front of a word the shell puts a home directory in place of a tilde.
    if (!vrk_name_is_safe(name) || name[0] == '~') {
        return "is not a safe package name";
    }
    // The tool would install such a file of the working directory in place of the chosen package.
    if (std::string_view(name).ends_with(".vrk")) {
        return "would be taken for a package file";
    }
    return nullptr;
}

static bool all_are_safe(const tool_action &action, char *const *names) {
    for (char *const *name = names; *name; name++) {
        if (const char *fault = fault_of_word(*name)) {
            log_say(LEVEL_ERROR, "cannot %s: <%.254s> %s", action.name,
                    terminal_safe_cell(*name).c_str(), fault);
            return false;
        }
    }
    return true;
}

std::optional<std::string> tool_word_command(int mode) {
    switch (mode) {
        case 0:
            return tool() + " allowed";
        case 3:
            return tool() + " refresh";
        default:
            return std::nullopt;
    }
}

std::optional<std::string> tool_command(const tool_action &action, char *const *names) {
    std::string command = tool() + " " + action.word;
    if (action.takes_names) {
        if (!names || !names[0]) {
            log_say(LEVEL_ERROR, "cannot %s: there are none", action.name);
            return std::nullopt;
        }
        if (!all_are_safe(action, names)) {
            return std::nullopt;
        }
        const own_string joined(arr2str(names, ' '));
        if (!joined) {
            log_say(LEVEL_ERROR, "cannot %s: out of memory", action.name);
            return std::nullopt;
        }
        command.append(" ").append(joined.get());
    }
    command += " 2>&1";
    if (command.size() >= tool_command_room) {
        log_say(LEVEL_ERROR,
                "cannot %s: the command line has %zu characters, which is more than %zu",
                action.name, command.size(), tool_command_room - 1);
        return std::nullopt;
    }
    return command;
}
