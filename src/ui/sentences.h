// What an event means to a user.
#pragma once

#include <string>

#include "support/event.h"

enum class sentence_sort {
    nothing,  // not for the user
    step,     // progress of a change
    reason,   // why something does not work
    cause,    // explains the next reason or failure: said with it
    outcome,  // what a whole run came to
    failure,  // ends a package: said with what the rollback did
    finding,  // what an audit found
};

struct sentence {
    sentence_sort sort;
    std::string text;          // without a line feed
    std::string subject = {};  // the package or the path that it begins with, empty for none
};

// The sentence of an event, with the event's values in it.
sentence sentence_of(const event &happened);
