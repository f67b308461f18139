#include "gui/close_button.h"
#include "gui/screens.h"
#include "gui/status_line.h"
#include "gui/window.h"
#include "repository/vrc.h"
#include "support/log.h"

void screen_refresh() {
    add_label("Action: Refresh catalogue", 10, 100, 660, 345);
    vrm_cache_free(vrc_cache);
    vrc_cache = nullptr;  // the next pass of the loop fills it anew
    add_status("refresh package catalogue...");
    // Warnings, so that the log of a program that leaves DEBUG out has the time it took.
    log_say(LEVEL_WARNING, "refreshing cat\n");
    if (pvrm_vrc_refresh(vrc) != 0) {
        add_status("failed to refresh");
    } else {
        log_say(LEVEL_WARNING, "refreshed cat\n");
        add_status("refreshed catalogue");
    }
    // No tool runs here, so nothing activates the button: the user moves on by the top row.
    add_close_button();
    finish_window();
}
