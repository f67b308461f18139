// Private to the transactions: the user's word on files that stand in the way of a package.
#pragma once

#include <string>

#include "support/own.h"
#include "transaction/stage.h"
#include "ui/vrmui.h"

// One object for each package, as that is how long an answer for all files lasts.
class conflict_answers {
 public:
    // 'l' leaves the file, 'r' replaces it, 'a' aborts.
    char ask(const char *path) {
        if (sticky_) {
            return sticky_;
        }
        if (!choices_) {
            choices_.reset(str2ekva(vrm_insert_choices, ','));
        }
        const std::string question = std::string("The file ") + path +
                                     " already exists on the filesystem. Choose your action";
        const char *answer = vrmui_select(vrmui, question.c_str(), choices_.get(), "r", 0);
        switch (answer ? answer[0] : '\0') {
            case 'l':
            case 'r':
                return answer[0];
            case 'L':
                return sticky_ = 'l';
            case 'R':
                return sticky_ = 'r';
            default:
                return 'a';
        }
    }

 private:
    own_ekva choices_;
    char sticky_ = '\0';
};
