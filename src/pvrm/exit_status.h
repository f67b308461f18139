// What the exit status of the tool means. Scripts and the window rely on it: `pvrm help` and the
// manual page tell the same table.
#pragma once

enum exit_status : int {
    EXIT_DONE = 0,
    EXIT_FAILED = 1,         // something that was asked for did not happen
    EXIT_WRONG_USAGE = 2,    // the command line makes no sense; nothing was done
    EXIT_NOT_PERMITTED = 3,  // the caller may not change the system; nothing was done
    // Another process is changing the repository, or a script that was left running has not ended;
    // nothing was done.
    EXIT_LOCKED = 4,
};
