// The loop that is the whole of the user interface.
#pragma once

// Each pass makes a new window for `vrm_gui_action` and runs the toolkit until the window is
// hidden, by a callback or by the window manager; hiding alone repeats the action. Returns when the
// user has confirmed to quit, or in update-only mode when there is nothing to update.
void run_loop();
