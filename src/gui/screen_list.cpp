#include <FL/Fl_Double_Window.H>
#include <FL/Fl_Multi_Browser.H>

#include "gui/model/package_rows.h"
#include "gui/package_table.h"
#include "gui/screens.h"
#include "gui/state.h"
#include "gui/window.h"

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
