#include "pvrm/agreement.h"

#include "pvrm/interruption.h"
#include "ui/vrmui.h"

bool user_agrees(const std::string &question, int default_answer) {
    return !was_interrupted() && vrmui_yesno(vrmui, question.c_str(), default_answer) == 1 &&
           !was_interrupted();
}

std::string question_of_packages(const char *verb, size_t packages) {
    return std::string(verb) +
           (packages == 1 ? " this package?" : " these " + std::to_string(packages) + " packages?");
}
