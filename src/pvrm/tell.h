// What the tool says: steps on stdout, failures on stderr, each line begun with "pvrm: " and
// written at once, since the window shows them as they come. What was printed to stdout before is
// written first: stdout is buffered when it is not a terminal, and both may lead to one file.
#pragma once

#include <string>
#include <vector>

// Steps are not told any more (--quiet).
void tell_no_steps();

// A step of a change, without its line end. Texts in it are made safe for a terminal.
void tell_step(const char *format, ...) __attribute__((format(printf, 1, 2)));

// What is wrong with a package or a file, in the parts of its sentence: "SUBJECT WHAT: WHY".
struct problem {
    std::string subject;  // empty when `what` is a sentence of its own
    std::string what;     // may be empty beside the other two
    std::string why = {};

    std::string text() const;
    // How it reads after the name of what failed: for the subject the reason, or "it WHAT", for
    // another name the whole sentence.
    std::string text_after(const std::string &name) const;
};

// Something that went wrong: a plain sentence without its line end.
void tell_problem(const char *format, ...) __attribute__((format(printf, 1, 2)));
void tell_problem(const problem &found);

// Something that the user should know, but that makes nothing fail; the line says so.
void tell_warning(const char *format, ...) __attribute__((format(printf, 1, 2)));

// The same, of a whole sentence that says so itself, if need be.
void tell_warning_text(const std::string &text);

// A line that belongs to the problem above it, without the name of the tool.
void tell_detail(const char *format, ...) __attribute__((format(printf, 1, 2)));

// Forgets the problems that were printed so far.
void note_problems();

// The first problem since then, without warnings; nothing in its parts when there was none.
problem first_problem();

// From here on problems are held back instead of printed and noted: those of an attempt that may be
// made again in another way. Warnings and details are not held back.
void hold_problems();

struct held_problem {
    problem what;
    bool is_printed;  // shortly before
};

// Ends that. Result: what was held back, in its order.
std::vector<held_problem> take_held_problems();

// Prints and notes what was held back.
void tell_held(const std::vector<held_problem> &held);

// Counts a problem as printed, as it was printed shortly before.
void note_repeated_problem(const problem &found);
