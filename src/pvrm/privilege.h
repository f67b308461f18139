// Who may change the system: root, and whoever may run this very tool as root through sudo without
// being asked for a password. There is no rule of our own beside that.
#pragma once

#include <vector>

// Whether the caller may change the system; asks sudo when the caller is not root.
bool may_change_system();

// Runs the tool again as root with these arguments (without the program's name) and ends with its
// exit status. Comes back only when that is not permitted, having said so: EXIT_NOT_PERMITTED.
int run_as_root(const std::vector<const char *> &arguments);
