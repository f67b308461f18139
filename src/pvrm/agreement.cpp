#include "pvrm/agreement.h"

#include <string>

#include "pvrm/interruption.h"
#include "ui/vrmui.h"

bool user_agrees(const char *verb, size_t packages) {
    const std::string question =
        std::string(verb) +
        (packages == 1 ? " this package?" : " these " + std::to_string(packages) + " packages?");
    return !was_interrupted() && vrmui_yesno(vrmui, question.c_str(), 1) == 1 && !was_interrupted();
}
