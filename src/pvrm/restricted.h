// The restricted mode, `pvrm --restricted`, which a sudoers rule can permit to users who are not to
// become root by it: they install what trusted signers made and the catalogue offers, and remove
// it again. A list names what is permitted in it; every other word and option is refused, also one
// that is added to the tool later.
#pragma once

#include <string>
#include <string_view>
#include <vector>

// An argument of a word as the help calls it: "--yes", or "NAME|FILE" for one without an option;
// with the values that it was given.
struct given_argument {
    std::string name;
    std::vector<std::string> values;
};

// Why the restricted mode refuses a command line: a sentence for the user. Empty when it permits
// it.
std::string restricted_refusal(std::string_view word, const std::vector<given_argument> &arguments);

// Makes a process of root independent of its caller: its environment, working directory, limits,
// timers and signals become those that a login of root would have. Empty, or why that failed, a
// sentence for the user: the process must end then.
std::string forget_caller();
