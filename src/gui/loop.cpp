#include "gui/loop.h"

#include <FL/Fl.H>

#include "gui/model/tool_action.h"
#include "gui/screens.h"
#include "gui/state.h"
#include "gui/window.h"
#include "repository/vrc.h"
#include "support/log.h"

// Adds the screen of the action. False when the loop is to end.
static bool add_screen(int action, int last_action) {
    switch (action) {
        case ACTION_SEARCH:
            screen_search();
            return true;
        case ACTION_UPDATES:
            return screen_updates();
        case ACTION_REFRESH:
            screen_refresh();
            return true;
        case ACTION_IDLE:
            screen_idle();
            return true;
        case ACTION_QUIT:
            return !screen_quit(last_action);
        case ACTION_UPDATE_ALL:
        case ACTION_UPDATE_SELECTED:
        case ACTION_INSTALL_SELECTED:
        case ACTION_CLEANUP:
            screen_run_tool(action);
            return true;
        case ACTION_LIST:
            screen_list();
            return true;
        default:
            screen_fallback();
            return true;
    }
}

void run_loop() {
    int last_action = ACTION_IDLE;
    for (;;) {
        if (!vrc_cache) {
            vrc_cache = vrm_vrc_cache_fill(vrc);
        }
        new_window();
        log_debug("Gui Action: %d\n", vrm_gui_action);
        if (!add_screen(vrm_gui_action, last_action)) {
            break;
        }
        last_action = vrm_gui_action;
        Fl::run();
        leave_window();
    }
    leave_window();
}
