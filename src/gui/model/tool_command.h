// The command lines of the privileged tool. They go through a shell, and names stand in them as
// they are, so a line is made only of names that mean nothing to it.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "gui/model/tool_action.h"

// The tool. It has no setting: who could change it would choose what runs with the tool's rights.
// A test that needs another one defines the name itself, which is weak here.
extern const char *const pvrm_path;

// What a command line takes at most, with its terminator.
inline constexpr size_t tool_command_room = 2048;

// The command line by which the tool is told one word and waited for: mode 0 is "allowed", 3 is
// "refresh"; nothing for any other mode.
std::optional<std::string> tool_word_command(int mode);

// The command line of an action, with stderr merged into the output. `names` is null-terminated and
// used only by the actions that take names, which need at least one: without names the tool would
// update everything. Nothing when there is no name, when a name could mean something else to the
// shell or the tool, and when the line has no room: it is never cut, as half a name may be another
// package's. The log says why.
std::optional<std::string> tool_command(const tool_action &action, char *const *names);
