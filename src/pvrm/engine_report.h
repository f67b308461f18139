// Says what the engine reports. The engine's events come here, and become steps and problems in
// plain sentences (ui/sentences.h).
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "pvrm/tell.h"
#include "support/event.h"
#include "support/handle.h"

// Receives the engine's events from here on: steps go to tell_step, reasons to tell_problem. A
// reason that was just said is not said again, and a warning is said once.
void report_engine();

// The repository of this run; null for none. An entry without its record, which is written last, is
// not called damaged while another process changes the repository: it is just being made.
void report_engine_of(vrm_handle *repository);

// Tells a failure that the tool itself found, with the cause that the engine gave last behind it.
void tell_failure(const char *format, ...) __attribute__((format(printf, 1, 2)));
void tell_failure(problem found);

// Whether the engine gave a cause that no failure has told yet.
bool was_explained();

// Forgets that cause, as it belongs to something that is over. Result: what it was.
std::string take_cause();

// What became of the changes of a package that failed.
enum class rollback {
    none,        // there were none to undo
    complete,    // all of it undone
    incomplete,  // something could not be put back
};

// Forgets the last rollback that no failure has told. Result: how it went.
rollback take_rollback();

// The sentence that a change failed, with what the rollback did. Without a rollback there was
// nothing to undo, and the sentence is as it was.
std::string with_rollback(const std::string &failed, rollback how);

// There is no catalogue, and the reason was printed. From here on nothing is said that only follows
// from it: what nobody could look up was not looked for in vain.
void expect_no_catalogue();

// How many directories of the catalogue could not be read, or only in part, so far.
int unreadable_directories();

// What the engine said of an attempt that may yet be repeated.
struct kept_reasons {
    struct given {
        event_kind kind;
        problem what;  // the reason in it is the cause
    };
    std::vector<given> reasons;
    std::string cause;  // that no reason took
};

// From here on reasons are kept instead of told.
void keep_reasons();

// Ends that. Result: what was kept. The cause that was given last is forgotten.
kept_reasons take_reasons();

// Tells reasons as if the engine gave them now.
void tell_reasons(kept_reasons kept);

// Forgets the last reason: the same one is printed when it is given again. For a caller that held
// problems back (hold_problems).
void forget_last_reason();

// Forgets which package's installation failed last. Result: its unique name, empty for none.
std::string take_failed_installation();

// Forgets the last outcome. Result: what it was.
std::string take_outcome();

// How many reasons were told so far: a run that goes on past the failures of single things does not
// tell them by its result.
size_t reasons_told();
