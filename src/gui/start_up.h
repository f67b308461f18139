// The stages between the program's call and its first window.
#pragma once

// Exit codes of the program.
enum start_up_result : int {
    STARTED = 0,
    START_UP_FAILED = 1,
    BACKEND_FAILED = 2,  // the catalogue backend can't be loaded
};

// Goes through the stages in their order: theme and images, configuration, log, user interface, the
// tool's permission, the catalogue backend, the repository, the catalogue, and whether a change was
// cut off, which is reported. Sets the globals of gui/state.h. The result other than STARTED is the
// code to exit with, after the reason has been told.
start_up_result start_up(int argc, char **argv);
