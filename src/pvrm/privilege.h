// Who may change the system: root, and whoever may run this very tool as root through sudo without
// being asked for a password. There is no rule of our own beside that.
//
// A rule of sudo may permit the tool as it is, or only `pvrm --restricted WORD ...`, with the
// option first and the word after it (pvrm/restricted.h). The full form is preferred.
#pragma once

#include <string>
#include <vector>

#include "pvrm/words.h"

// Whether the caller may change the system, in whichever form; asks sudo when the caller is not
// root. With `restricted` only the restricted form counts.
bool may_change_system(bool restricted);

// Runs the tool again as root with these arguments (without the program's name) and ends with its
// exit status. `word` is the one among them that is the word, and `restricted` whether they ask for
// the restricted mode. Comes back only when that is not permitted, having said so:
// EXIT_NOT_PERMITTED.
exit_status run_as_root(const std::vector<std::string> &arguments, const std::string &word,
                        bool restricted);
