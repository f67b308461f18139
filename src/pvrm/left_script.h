// A script of a package that was left running when the tool was killed.
#pragma once

#include "pvrm/words.h"
#include "support/handle.h"

// How long a change waits for such a script, in seconds, unless `script_wait` of the configuration
// says something else.
inline constexpr char default_script_wait[] = "60";
inline constexpr unsigned most_script_wait = 86400;

// Waits until the script has ended that an earlier run left. Called with the lock held. Result:
// EXIT_DONE; EXIT_LOCKED when it has not ended in time, EXIT_FAILED when the wait was interrupted,
// both with the reason printed.
exit_status await_left_script(const vrm_handle *handle);

// Warns of a script that runs, in a dry run, which does not wait for it.
void warn_of_running_script(vrm_handle *handle);
