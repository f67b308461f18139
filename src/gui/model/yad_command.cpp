#include "gui/model/yad_command.h"

#include <cstring>
#include <string_view>

#include "support/log.h"
#include "support/text.h"

// For the inside of single quotes: a single quote closes them, stands by itself and opens them
// again.
static std::string single_quoted(const char *text) {
    std::string safe;
    for (const char *at = or_empty(text); *at; at++) {
        if (*at == '\'') {
            safe += "'\\''";
        } else {
            safe += *at;
        }
    }
    return safe;
}

// For the inside of double quotes.
static std::string double_quoted(const char *text) {
    std::string safe;
    for (const char *at = or_empty(text); *at; at++) {
        if (std::string_view("\"$`\\").find(*at) != std::string_view::npos) {
            safe += '\\';
        }
        safe += *at;
    }
    return safe;
}

static std::string form_value(const char *value) {
    const std::string safe = single_quoted(value);
    return safe.starts_with('-') ? " " + safe : safe;
}

std::string yad_form_command(const char *title, const char *heading, s_ekva *const *rec) {
    std::string command;
    command.reserve(1000);
    command += "yad --form --title='" + single_quoted(title) +
               "' --scroll --center --width=600 --height=400 --text='" + single_quoted(heading) +
               "' --buttons-layout=center --button=yad-ok:0";
    const char *key_before = nullptr;
    for (s_ekva *const *pair = ekva_first_pair(rec); pair && *pair; pair++) {
        const char *key = or_empty((*pair)->key);
        if (!key_before || strcmp(key, key_before) != 0) {
            command += " --field='" + single_quoted(key) + ":RO'";
        } else {
            command += " --field=:RO";
        }
        command += " '" + form_value((*pair)->val) + "'";
        key_before = key;
    }
    return command + " >/dev/null 2>&1";
}

std::optional<std::string> yad_selection_command(const char *title, const char *prompt,
                                                 s_ekva *const *choices) {
    std::string command = "yad --entry --title=\"" + double_quoted(title) + "\" --text \"" +
                          double_quoted(prompt) + "\" --no-markup --button=yad-ok:0 --entry-text ";
    for (s_ekva *const *pair = ekva_first_pair(choices); pair && *pair; pair++) {
        command += " \"" + double_quoted((*pair)->val) + "\" ";
    }
    if (command.size() >= yad_selection_room) {
        log_say(LEVEL_ERROR,
                "cannot offer a choice: the command line has %zu characters, which is more than "
                "%zu",
                command.size(), yad_selection_room - 1);
        return std::nullopt;
    }
    return command;
}

const char *key_of_yad_answer(s_ekva *const *choices, const std::string &line) {
    const std::string answer = line.substr(0, line.empty() ? 0 : line.size() - 1);
    for (s_ekva *const *pair = ekva_first_pair(choices); pair && *pair; pair++) {
        if (answer == or_empty((*pair)->val)) {
            return (*pair)->key;
        }
    }
    return nullptr;
}
