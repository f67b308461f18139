#include <FL/Fl_Double_Window.H>
#include <FL/Fl_Multi_Browser.H>

#include "gui/model/update_rows.h"
#include "gui/screens.h"
#include "gui/state.h"
#include "gui/update_table.h"
#include "gui/window.h"
#include "repository/vrc.h"
#include "support/log.h"
#include "ui/vrmui.h"

static void offer_updates() {
    add_label("The following updates are available:", 10, 100);
    auto *const table = new VraTable(10, 130, 760, 415);
    add_button(10, 570, 220, 25, "Update All", update_all_CB, table);
    if (!update_only) {
        add_button(250, 570, 220, 25, "Update Selected", update_sel_CB, table);
    }
    win->resizable(table);
}

bool screen_updates() {
    pvrm_status->hide();
    update_rows_free();
    log_debug("In action update\n");
    if (!update_only) {
        add_label("Action: Select software to update");
    }
    update_rows_plan(vrm, vrc);
    if (num_vras > 0) {
        offer_updates();
    } else if (!update_only) {
        add_label("There are no updates available.", 10, 100);
    } else {
        win->end();  // what the message is made of doesn't belong in there
        vrmui_write_info(vrmui, "There are no updates available", 0);
        return false;
    }
    finish_window();
    return true;
}
