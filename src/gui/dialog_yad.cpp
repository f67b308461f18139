// Forms and selections, each a run of the dialog program `yad` that the window waits for. The shell
// finds it on the path; where it is missing, forms fail and selections get no answer.
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

#include "gui/model/yad_command.h"
#include "support/log.h"
#include "support/own.h"
#include "ui/vrmui.h"

static const char *title_of(const vrmui_object *ui) {
    return ui ? ui->title : nullptr;
}

// The first line that a command writes, at most 1023 characters of it; nothing when it writes none
// or can't be run. What the command returns doesn't matter.
static std::optional<std::string> first_line_of(const std::string &command) {
    const std::unique_ptr<FILE, release_with<pclose>> output(popen(command.c_str(), "re"));
    char line[1024];
    if (!output || !fgets(line, sizeof line, output.get())) {
        return std::nullopt;
    }
    return line;
}

const char *vrmui_select(vrmui_object *ui, const char *prompt, s_ekva *const *choices,
                         const char *default_key, int /*flag*/) {
    if (vote_mode == 3) {
        return default_key;
    }
    const std::optional<std::string> command = yad_selection_command(title_of(ui), prompt, choices);
    if (!command) {
        return nullptr;
    }
    log_debug("Calling <%s>", command->c_str());
    const std::optional<std::string> answer = first_line_of(*command);
    return answer ? key_of_yad_answer(choices, *answer) : nullptr;
}

int vrmui_write_form(vrmui_object *ui, const char *heading, s_ekva *const *rec) {
    const std::string command = yad_form_command(title_of(ui), heading, rec);
    log_debug("Calling <%s>", command.c_str());
    return system(command.c_str());
}
