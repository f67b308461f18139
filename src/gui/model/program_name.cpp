#include "gui/model/program_name.h"

#include <cstring>

bool asks_for_updates_only(const char *program_name) {
    return program_name && strstr(program_name, "-update");
}
