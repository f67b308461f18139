#include "maintenance/upkeep.h"

#include "support/event.h"
#include "ui/vrmui.h"

bool dry_run = false;

bool may_begin(const char *who, const vrm_handle *handle) {
    if (dry_run || handle->locked) {
        return true;
    }
    report({.kind = event_kind::not_locked, .who = who});
    return false;
}

recurring_question::recurring_question(const char *answers, const char *proposed)
    : answers_(str2ekva(answers, ',')), proposed_(proposed) {}

void recurring_question::begin_walk(char unattended) {
    settled_ = vote_mode == 1 ? '\0' : unattended;
}

char recurring_question::letter_for(const std::string &text) const {
    if (settled_) {
        return settled_;
    }
    const char *key = vrmui_select(vrmui, text.c_str(), answers_.get(), proposed_, 0);
    return key ? key[0] : 'a';
}

char recurring_question::letter_of_removal(const std::string &text) {
    const char letter = letter_for(text);
    if (letter == 'L') {
        settle('k');
        return 'k';
    }
    if (letter == 'R') {
        settle('d');
        return 'd';
    }
    return letter;
}
