#include "gui/model/tool_output.h"

#include <cstring>

static constexpr char status_marker[] = "pvrm: ";

bool read_tool_line(FILE *output, tool_line *line) {
    return fgets(line->text, tool_line::limit, output) != nullptr;
}

const char *status_of_tool_line(const char *line) {
    return strstr(line, status_marker) ? line + strlen(status_marker) : nullptr;
}

void copy_action_name(char (&to)[256], const char *name) {
    const size_t length = strnlen(name, 254);
    memmove(to, name, length);
    to[length] = '\0';
}

std::string tool_result_line(const char *action_name, int wait_status) {
    std::string line = action_name;
    if (wait_status != 0) {
        return line + " failed with return code " + std::to_string(wait_status);
    }
    return line + " was successful";
}
