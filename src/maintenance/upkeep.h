// What the audits and the cleanup share, and how a program asks them for a dry run.
#pragma once

#include <string>

#include "support/handle.h"
#include "support/own.h"

// While it is set audits and the cleanup ask nothing and change nothing: they only tell what they
// would do. Therefore they need no repository lock then. Nothing else looks at it, and least of all
// the executors of a change, which never run without the lock. A program sets it once, before it
// calls them; it is false at the start.
extern bool dry_run;

// Whether a function of the maintenance may begin: with the repository lock, or when dry_run makes
// it a report. Tells at ERROR when it may not; `who` is the function.
bool may_begin(const char *who, const vrm_handle *handle);

// A question that comes back with each entry of a walk. Its answers are letters, of which some hold
// for all entries to come.
class recurring_question {
 public:
    // `answers` as str2ekva takes them; `proposed` is the letter that the user is offered.
    recurring_question(const char *answers, const char *proposed);

    // A new walk, in which nothing is settled. Where the user isn't to be asked, which is in all
    // modes but vote_mode 1, `unattended` is the answer to everything.
    void begin_walk(char unattended);

    // The letter to act by: the one that holds for the rest of the walk, or the user's. No answer
    // is an abort, 'a'.
    char letter_for(const std::string &text) const;

    // This letter holds from now on.
    void settle(char letter) {
        settled_ = letter;
    }

    // The letter in the questions whether an entry is to be removed: a capital one settles the rest
    // and comes back as the small one, so that what is left is 'k', 'd', 'a' or of no effect.
    char letter_of_removal(const std::string &text);

 private:
    own_ekva answers_;
    const char *proposed_;
    char settled_ = '\0';
};
