// The screens. Each of these functions adds one screen to the window that the pass of the loop has
// just made, ends the window's group and shows it (finish_window of gui/window.h); the work of an
// action is done in here, too.
#pragma once

// 5: nothing to do.
void screen_idle();

// 3 and every value that isn't listed: the same with the status line, and the action becomes 5.
void screen_fallback();

// 1: search the catalogue for packages to install.
void screen_search();

// 10: list what is installed.
void screen_list();

// 2: plan the updates and offer them. False when the program is to end: in update-only mode, when
// there are none, and then no window has been shown.
bool screen_updates();

// 4: refresh the catalogue.
void screen_refresh();

// 7, 8, 9 and 12: run the privileged tool.
void screen_run_tool(int action);

// 6: ask whether to quit. True when the program is to end. Otherwise the action is `last_action`
// again, the one before the question, and the bare window stays.
bool screen_quit(int last_action);
