// What the output of the privileged tool means to the window.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

// A line of the output with its newline and a terminator. A longer one comes in pieces of 1022
// characters, each of which counts as a line.
struct tool_line {
    static constexpr int limit = 1023;  // as fgets counts, with the terminator
    char text[limit + 1];
};

// Reads the next line, waiting for it. False at the end of the output.
bool read_tool_line(FILE *output, tool_line *line);

// What the status line shows of a line of the output: the line, newline included, without its first
// 6 characters, if "pvrm: " is anywhere in it, else null. A status line is meant to begin with that
// marker; where it stands further along, the 6 characters are taken off the beginning all the same.
const char *status_of_tool_line(const char *line);

// Copies the name of an action, cut at 254 bytes.
void copy_action_name(char (&to)[256], const char *name);

// What the status line shows at the end: "%s was successful", or "%s failed with return code %d"
// with the raw wait status, so 256 for a tool that exits with 1.
std::string tool_result_line(const char *action_name, int wait_status);
