// The actions of the window: the values of the global `vrm_gui_action`, each of which is a screen,
// and what those that run the privileged tool differ in. No toolkit here.
#pragma once

// 11 and all that is not listed are never set; the loop shows the fallback for them.
enum gui_action : int {
    ACTION_SEARCH = 1,            // search the catalogue, choose packages to install
    ACTION_UPDATES = 2,           // list the updates available
    ACTION_REMOVE = 3,            // no screen of its own: as any unknown value
    ACTION_REFRESH = 4,           // refresh the catalogue
    ACTION_IDLE = 5,              // the start, and where the fallback leads
    ACTION_QUIT = 6,              // ask, then end
    ACTION_UPDATE_ALL = 7,        // run the tool: update all
    ACTION_UPDATE_SELECTED = 8,   // run the tool: update the packages in `sel_vrks`
    ACTION_INSTALL_SELECTED = 9,  // run the tool: install the packages in `sel_vrks`
    ACTION_LIST = 10,             // list what is installed
    ACTION_CLEANUP = 12,          // run the tool: clean up
};

struct tool_action {
    int action;                // a gui_action
    const char *box;           // what the window says it does
    const char *word;          // what the tool is told to do
    bool takes_names;          // whether the chosen names follow the word
    const char *first_line;    // status line once the tool has been started
    const char *name;          // what the result line says it was
    const char *failure_line;  // status line when the tool was not started
    bool blocks_buttons;       // whether the top row is inactive while the tool runs; a cleanup
                               // leaves it active on purpose
};

// The row of an action; null for the actions that run no tool.
const tool_action *find_tool_action(int action);
