// What the tables of the window have in common: their looks, and the button below them that takes
// the selected rows along.
#pragma once

#include <FL/Fl_Table_Row.H>

#include <functional>

#include "gui/model/table_rows.h"

// Asks for the text of a cell when it is drawn and holds no copy: a list of any length costs what
// the visible rows cost. Each screen makes a table of its own. Several rows can be selected, unless
// the screen changes that.
class list_table : public Fl_Table_Row {
 public:
    // Nothing is done by a click but the selection, which the base class makes.
    static void event_callback(Fl_Widget *widget, void *table);
    void event_callback2();

 protected:
    list_table(int x, int y, int w, int h, const char *label, const table_columns &columns,
               int count);

    // The text of a cell, which is read before the next call.
    virtual const char *text_of(int row, int column) = 0;

    // Takes over this number of rows, none of them selected.
    void take_rows(int count);

    void draw_cell(TableContext context, int row, int col, int x, int y, int w, int h) override;
    void DrawHeader(const char *text, int x, int y, int w, int h);

 private:
    void draw_box_on_ground(int x, int y, int w, int h, Fl_Color box_color);
    void draw_list_cell(int row, int col, int x, int y, int w, int h);
    void size_rows_and_columns(int count);

    const table_columns &columns_;
};

// Makes a list of names out of the rows that are selected: package_rows_choose and its like.
using choose_rows = std::function<int(const std::function<bool(int row)> &selected, char ***names)>;

// Leaves the names of what is selected in `sel_vrks`, goes to the action and hides the button's
// window. With nothing selected the action stays as it is, so the screen is made anew.
void leave_with_selection(Fl_Widget *button, Fl_Table_Row &table, const choose_rows &choose,
                          int action);
