#include "gui/update_table.h"

#include <FL/Fl_Window.H>

#include <utility>

#include "gui/model/tool_action.h"
#include "gui/model/update_rows.h"
#include "gui/state.h"
#include "support/array.h"
#include "support/log.h"

cell_text VraTable::s;

VraTable::VraTable(int x, int y, int w, int h, const char *label)
    : list_table(x, y, w, h, label, update_columns, num_vras) {}

VraTable::~VraTable() = default;

const char *VraTable::text_of(int row, int column) {
    update_cell(row, column, s);
    return s;
}

void update_sel_CB(Fl_Widget *button, void *table) {
    leave_with_selection(button, *static_cast<VraTable *>(table), update_rows_choose,
                         ACTION_UPDATE_SELECTED);
}

void update_all_CB(Fl_Widget *button, void * /*table*/) {
    log_say(LEVEL_INFO, "Somebody presssed the update_all button.");
    arr_free(std::exchange(sel_vrks, nullptr));
    vrm_gui_action = ACTION_UPDATE_ALL;
    button->window()->hide();
}
