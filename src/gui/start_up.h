// The stages between the program's call and its first window.
#pragma once

// Exit codes of the program, 0 apart.
enum start_up_failure : int {
    START_UP_FAILED = 1,
    BACKEND_FAILED = 2,  // the catalogue backend can't be loaded
};

// Goes through the stages in their order: theme and images, configuration, log, user interface, the
// tool's permission, the catalogue backend, the repository, the catalogue. Sets the globals of
// gui/state.h. The result is 0, or the code to exit with after the reason has been told.
int start_up(int argc, char **argv);
