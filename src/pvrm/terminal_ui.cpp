#include "pvrm/terminal_ui.h"

#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include "pvrm/interruption.h"
#include "support/file.h"
#include "support/own.h"
#include "support/terminal_text.h"
#include "ui/vrmui.h"

FILE *terminal_in = nullptr;
FILE *terminal_out = nullptr;
bool terminal_verbatim = false;
bool terminal_informs = true;

const char *const vrmui_backend = "terminal";

FILE *terminal_stream() {
    return terminal_out ? terminal_out : stdout;
}

void terminal_put(const std::string &safe_text) {
    FILE *const out = terminal_stream();
    fputs(safe_text.c_str(), out);
    fflush(out);
}

std::string terminal_lines(const char *text) {
    std::string lines = terminal_safe(text ? text : "");
    if (!lines.empty() && lines.back() != '\n') {
        lines += '\n';
    }
    return lines;
}

namespace {

// The next line of the input without its end and the blanks around it; nothing at the end of the
// input, also when that cuts an empty line short, and when an end was asked for. Read by bytes and
// not through the stream, in whose buffer the wait for input would not see a line.
std::optional<std::string> read_answer() {
    const int fd = fileno(terminal_in ? terminal_in : stdin);
    std::string answer;
    char next = '\0';
    while (next != '\n' && await_input(fd) && read(fd, &next, 1) == 1) {
        answer += next;
    }
    if (answer.empty() || was_interrupted()) {
        terminal_put("\n");  // closes the line of the prompt
        return std::nullopt;
    }
    const size_t first = answer.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) {
        return "";
    }
    return answer.substr(first, answer.find_last_not_of(" \t\r\n") - first + 1);
}

const char *value_of(const s_ekva *pair) {
    return pair->val ? pair->val : "";
}

// The key that an answer names: by itself, since case tells keys apart, or by the whole text.
const char *key_of_answer(s_ekva *const *pairs, const std::string &answer) {
    for (s_ekva *const *pair = pairs; *pair; pair++) {
        if (answer == (*pair)->key) {
            return (*pair)->key;
        }
    }
    for (s_ekva *const *pair = pairs; *pair; pair++) {
        if (strcasecmp(answer.c_str(), value_of(*pair)) == 0) {
            return (*pair)->key;
        }
    }
    return nullptr;
}

std::string choices_as_lines(s_ekva *const *pairs, const char *default_key) {
    std::string lines;
    for (s_ekva *const *pair = pairs; *pair; pair++) {
        const bool is_default = default_key && strcmp((*pair)->key, default_key) == 0;
        lines += "  " + terminal_safe_cell((*pair)->key) + "  " +
                 terminal_safe_cell(value_of(*pair)) + (is_default ? " (default)\n" : "\n");
    }
    return lines;
}

std::string keys_as_list(s_ekva *const *pairs) {
    std::string keys;
    for (s_ekva *const *pair = pairs; *pair; pair++) {
        keys += (keys.empty() ? "" : ", ") + terminal_safe_cell((*pair)->key);
    }
    return keys;
}

}  // namespace

int vrmui_write(vrmui_object *, const char *text, int) {
    terminal_put(terminal_verbatim && text ? text : terminal_lines(text));
    return 0;
}

// A window leaves a copy on stderr, as it is gone when it was closed. Here the text itself stays.
int vrmui_write_info(vrmui_object *ui, const char *text, int ask) {
    return terminal_informs ? vrmui_write(ui, text, ask) : 0;
}

int vrmui_yesno(vrmui_object *, const char *question, int default_answer) {
    if (vote_mode == 3) {
        return default_answer;
    }
    for (;;) {
        terminal_put(terminal_safe(question) + (default_answer ? " [Y/n] " : " [y/N] "));
        const std::optional<std::string> answer = read_answer();
        if (!answer) {
            return 0;
        }
        if (answer->empty()) {
            return default_answer;
        }
        for (const char *yes : {"y", "yes"}) {
            if (strcasecmp(answer->c_str(), yes) == 0) {
                return 1;
            }
        }
        for (const char *no : {"n", "no"}) {
            if (strcasecmp(answer->c_str(), no) == 0) {
                return 0;
            }
        }
        terminal_put("Please answer y or n.\n");
    }
}

const char *vrmui_select(vrmui_object *, const char *prompt, s_ekva *const *choices,
                         const char *default_key, int) {
    if (vote_mode == 3) {
        return default_key;
    }
    s_ekva *const *const pairs = ekva_first_pair(choices);
    if (!pairs || !*pairs) {
        return nullptr;  // nothing to choose from
    }
    terminal_put(terminal_lines(prompt) + choices_as_lines(pairs, default_key));
    // Some questions propose an answer that is not among those that they offer.
    const bool is_offered = default_key && key_of_answer(pairs, default_key);
    const std::string ask = default_key && !is_offered
                                ? "Your choice [" + terminal_safe_cell(default_key) + "]: "
                                : "Your choice: ";
    for (;;) {
        terminal_put(ask);
        const std::optional<std::string> answer = read_answer();
        if (!answer) {
            return nullptr;
        }
        const std::string wanted = answer->empty() && default_key ? default_key : *answer;
        if (const char *key = key_of_answer(pairs, wanted)) {
            return key;
        }
        if (default_key && wanted == default_key) {
            return default_key;
        }
        terminal_put("Please answer with one of " + keys_as_list(pairs) + ".\n");
    }
}

int vrmui_write_form(vrmui_object *, const char *heading, s_ekva *const *rec) {
    s_ekva *const *const pairs = ekva_first_pair(rec);
    size_t widest = 0;
    for (s_ekva *const *pair = pairs; pair && *pair; pair++) {
        widest = std::max(widest, terminal_width(terminal_safe_cell((*pair)->key) + ":"));
    }
    std::string lines = terminal_lines(heading);
    const std::string next_line = "\n  " + std::string(widest + 1, ' ');
    for (s_ekva *const *pair = pairs; pair && *pair; pair++) {
        const bool repeated = pair != pairs && strcmp((*pair)->key, pair[-1]->key) == 0;
        const std::string label = repeated ? "" : terminal_safe_cell((*pair)->key) + ":";
        std::string value = terminal_safe(value_of(*pair));
        // Further lines of a value stand below its first one.
        for (size_t at = 0; (at = value.find('\n', at)) != std::string::npos;) {
            value.replace(at, 1, next_line);
            at += next_line.size();
        }
        std::string line = "  " + label;
        line += terminal_padding(label, widest + 1) + value;
        line.resize(line.find_last_not_of(" \n") + 1);
        lines += line + "\n";
    }
    terminal_put(lines);
    return 0;
}

int vrmui_write_file(vrmui_object *, const char *path, int) {
    const own_file file(fopen_regular(path));
    if (!file) {
        return -1;
    }
    FILE *const out = terminal_stream();
    char *line = nullptr;
    size_t room = 0;
    std::string last;
    for (ssize_t length; (length = getline(&line, &room, file.get())) >= 0;) {
        last = terminal_safe({line, static_cast<size_t>(length)});
        fputs(last.c_str(), out);
    }
    free(line);
    terminal_put(last.empty() || last.back() == '\n' ? "" : "\n");
    return ferror(file.get()) ? -1 : 0;
}
