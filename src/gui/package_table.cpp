#include "gui/package_table.h"

#include <FL/Fl_Window.H>

#include "gui/model/package_rows.h"
#include "gui/model/tool_action.h"
#include "gui/state.h"
#include "repository/vrc.h"

cell_text MyTable::s;

MyTable::MyTable(int x, int y, int w, int h, const char *label)
    : list_table(x, y, w, h, label, package_columns, sel_rows) {}

MyTable::~MyTable() = default;

void MyTable::rebuild() {
    take_rows(sel_rows);
}

const char *MyTable::text_of(int row, int column) {
    package_cell(row, column, s);
    return s;
}

MyTable *add_package_table() {
    return new MyTable(10, 130, 760, 415);
}

Fl_Input *add_search_field(Fl_Callback *search, MyTable *table) {
    auto *const field = new Fl_Input(120, 100, 300, 25, "Package Name");
    field->callback(search, table);
    field->when(FL_WHEN_RELEASE | FL_WHEN_ENTER_KEY);
    return field;
}

void vrk_add_cb(Fl_Widget *input, void *table) {
    const auto *const field = static_cast<Fl_Input *>(input);
    package_rows_search_catalogue(vrm, vrc, field->label(), field->value());
    if (Fl_Window *const window = input->window()) {
        window->cursor(FL_CURSOR_DEFAULT);
    }
    static_cast<MyTable *>(table)->rebuild();
}

void vrk_lst_cb(Fl_Widget *input, void *table) {
    const auto *const field = static_cast<Fl_Input *>(input);
    package_rows_search_installed(vrm, field->label(), field->value());
    static_cast<MyTable *>(table)->rebuild();
}

void install_CB(Fl_Widget *button, void *table) {
    leave_with_selection(button, *static_cast<MyTable *>(table), package_rows_choose,
                         ACTION_INSTALL_SELECTED);
}

void listloc_CB(Fl_Widget * /*button*/, void *table) {
    auto *const packages = static_cast<MyTable *>(table);
    package_rows_view([packages](int row) { return packages->row_selected(row) > 0; });
}
