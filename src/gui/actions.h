// The actions: the values of the global `vrm_gui_action`, each of which stands for one screen. No
// toolkit here.
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
