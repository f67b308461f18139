// What the tool says: steps on stdout, failures on stderr, each line begun with "pvrm: " and
// written at once, since the window shows them as they come.
#pragma once

#include <string>

// Steps are not told any more (--quiet).
void tell_no_steps();

// A step of a change, without its line end. Texts in it are made safe for a terminal.
void tell_step(const char *format, ...) __attribute__((format(printf, 1, 2)));

// Something that went wrong, or that the user should know: a plain sentence without its line end.
void tell_problem(const char *format, ...) __attribute__((format(printf, 1, 2)));

// A line that belongs to the problem above it, without the name of the tool.
void tell_detail(const char *format, ...) __attribute__((format(printf, 1, 2)));

// Forgets the problems that were printed so far.
void note_problems();

// The first of them that is not a warning, or empty.
std::string first_problem();

// Counts a text as one that was printed, as it was printed shortly before.
void note_repeated_problem(const std::string &text);
