#include "gui/screens.h"

#include <FL/Fl_Double_Window.H>
#include <FL/Fl_Input.H>
#include <FL/Fl_Multi_Browser.H>

#include "gui/model/package_rows.h"
#include "gui/model/tool_action.h"
#include "gui/model/update_rows.h"
#include "gui/package_table.h"
#include "gui/state.h"
#include "gui/status_line.h"
#include "gui/tool.h"
#include "gui/update_table.h"
#include "gui/window.h"
#include "repository/vrc.h"
#include "support/log.h"
#include "support/own.h"
#include "ui/vrmui.h"

static constexpr char no_action[] = "No action selected";

void screen_idle() {
    pvrm_status->hide();
    add_label(no_action);
    finish_window();
}

void screen_fallback() {
    add_label(no_action);
    vrm_gui_action = ACTION_IDLE;
    finish_window();
}

void screen_search() {
    pvrm_status->hide();
    add_label("Action: Select software to install");
    // The table opens empty, also when the screen comes again.
    package_rows_free();
    MyTable *const table = add_package_table();
    Fl_Input *const field = add_search_field(vrk_add_cb, table);
    add_button(10, 570, 220, 25, "Install selected", install_CB, table);
    win->resizable(table);
    finish_window();
    field->take_focus();
}

void screen_list() {
    pvrm_status->hide();
    add_label("Action: View installed software");
    package_rows_list_installed(vrm);
    MyTable *const table = add_package_table();
    table->type(Fl_Table_Row::SELECT_SINGLE);
    add_search_field(vrk_lst_cb, table);
    add_button(10, 570, 220, 25, "View selected", listloc_CB, table);
    win->resizable(table);
    finish_window();
}

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

// The chosen names count once: a window that is closed and comes back has none.
static own_array take_chosen_names() {
    own_array names(sel_vrks);
    sel_vrks = nullptr;
    return names;
}

void screen_run_tool(int action) {
    const tool_action *tool = find_tool_action(action);
    if (!tool) {
        screen_fallback();
        return;
    }
    add_label(tool->box);
    if (tool->takes_names) {
        const own_array names = take_chosen_names();
        if (names && names.get()[0]) {
            start_tool(*tool, names.get());
        } else {
            add_label("No packages selected", 10, 70);
        }
    } else {
        start_tool(*tool, nullptr);
    }
    add_close_button();
    finish_window();
}

bool screen_quit(int last_action) {
    pvrm_status->hide();
    finish_window();
    if (update_only || vrmui_yesno(vrmui, "Do you really want to quit?", 1) == 1) {
        return true;
    }
    vrm_gui_action = last_action;
    return false;
}
