#include <FL/Fl_Double_Window.H>
#include <FL/Fl_Input.H>
#include <FL/Fl_Multi_Browser.H>

#include "gui/model/package_rows.h"
#include "gui/package_table.h"
#include "gui/screens.h"
#include "gui/state.h"
#include "gui/window.h"

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
