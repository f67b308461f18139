// The way to the user on a terminal: the implementation of the vrmui functions that the privileged
// tool is linked with. Messages, forms and tables are lines on the output; a question is followed
// by its choices and is answered by a line of the input. All text is made safe for a terminal.
#pragma once

#include <cstdio>
#include <string>

// Where answers are read and output goes. Null stands for stdin and stdout.
extern FILE *terminal_in;
extern FILE *terminal_out;

// What vrmui_write shows goes out byte by byte, for programs that read it. False at first.
extern bool terminal_verbatim;

// Whether vrmui_write_info shows anything. True at first; false while the receiver of the events
// prints the same in sentences.
extern bool terminal_informs;

// Where output goes.
FILE *terminal_stream();

// Writes what is safe already, at once: the user waits for it, and output of a program run
// meanwhile must not overtake it.
void terminal_put(const std::string &safe_text);

// A text, which may be null, as whole lines that are safe.
std::string terminal_lines(const char *text);
