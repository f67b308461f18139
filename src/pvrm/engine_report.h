// What the engine's log lines mean to a user. The engine reports its reasons on the log and nowhere
// else; the tool watches the log and says them in plain sentences.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

struct engine_report {
    enum kind {
        nothing,  // not for the user
        step,     // progress of a change
        reason,   // why something does not work
        cause,    // what only explains the next failure: kept until then
        outcome,  // what a whole run came to: kept for the word's last sentence
        failure,  // a reason that ends a package: told with what the rollback made of it
    };
    kind what = nothing;
    std::string text;  // without a line end
};

// The meaning of one log line. `level` is a level of support/log.h.
engine_report understand(uint32_t level, std::string_view message);

// Watches the log from here on: steps go to tell_step, reasons to tell_problem. A reason that was
// just told is not told again, and a warning is told once.
void report_engine();

// Tells what a planner left for the user in the text of the user interface object, line by line, in
// the same way.
void tell_engine_text(std::string_view text);

// Tells a failure that the tool itself found, with the cause that the engine gave last behind it.
void tell_failure(const char *format, ...) __attribute__((format(printf, 1, 2)));

// Whether the engine gave a cause that no failure has told yet.
bool was_explained();

// Forgets that cause, as it belongs to something that is over. Result: what it was.
std::string take_cause();

// What became of the changes of a package that failed.
enum class rollback {
    none,        // there were none to take back
    complete,    // taken back
    incomplete,  // something could not be put back
};

// Forgets the last rollback that no failure has told. Result: how it went.
rollback take_rollback();

// The sentence that a change failed, with what the rollback made of it behind. Where there was
// none, nothing was left changed either.
std::string with_rollback(const std::string &failed, rollback how);

// What the engine said of an attempt that may yet be repeated.
struct kept_reasons {
    struct given {
        uint32_t level;
        std::string text, cause;
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

// Forgets the last outcome. Result: what it was.
std::string take_outcome();

// How many reasons were told so far: a run that goes on past the failures of single things does not
// tell them by its result.
size_t reasons_told();
