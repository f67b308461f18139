// The privileged tool, by which every change of the system is made. Its output is all that comes
// back: progress as lines, and the exit status.
#pragma once

#include "gui/model/tool_action.h"
#include "support/ekva.h"

// Runs the tool with one word and waits: mode 0 is "allowed", 3 is "refresh". The result is the raw
// wait status, -1 for any other mode, with which nothing is run. The other arguments are not used.
int pvrm_exec(int mode, char *arg, s_ekva ***out);

// Starts the tool for an action, in the window whose group is open: makes `pvrm_out` and has
// `pvrm_fdh` called for each line, or shows the action's failure line when the tool can't be
// started or the names make no command line. `names` is null-terminated and only read.
//
// One tool is watched at a time, through `pvrm_file`. One that still runs (a cleanup, whose buttons
// stay active, or any whose window was closed) goes on unwatched: its output is read to the end, so
// that it is not stopped by a full or broken pipe, and goes to the log alone.
void start_tool(const tool_action &action, char *const *names);

// The handler that Fl::add_fd is given: takes one line of the tool's output from `pvrm_file`, and
// at the end of the output the tool's result. `name` is the text of the running action, null leaves
// `cur_action`; the descriptor is not used.
void pvrm_fdh(int fd, void *name);
