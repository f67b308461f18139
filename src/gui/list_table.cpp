#include "gui/list_table.h"

#include <FL/Fl_Window.H>
#include <FL/fl_draw.H>

#include <cstdio>

#include "gui/state.h"

list_table::list_table(int x, int y, int w, int h, const char *label, const table_columns &columns,
                       int count)
    : Fl_Table_Row(x, y, w, h, label), columns_(columns) {
    row_header(0);
    row_resize(0);
    col_header(1);
    col_resize(1);
    size_rows_and_columns(count);
    callback(event_callback, this);
    end();
}

// A change of a row's height makes the table add up the heights of all rows, so changing each row
// of a long list takes seconds. New rows take after the last one: they are added behind one that
// has its height.
void list_table::size_rows_and_columns(int count) {
    if (count > 0) {
        rows(1);
        row_height(0, table_row_height);
    }
    rows(count);
    cols(static_cast<int>(columns_.size()));
    row_height_all(table_row_height);
    int number = 0;
    for (const table_column &column : columns_) {
        col_width(number++, column.width);
    }
}

void list_table::take_rows(int count) {
    clear();
    size_rows_and_columns(count);
    redraw();
}

void list_table::event_callback(Fl_Widget *, void *table) {
    static_cast<list_table *>(table)->event_callback2();
}

void list_table::event_callback2() {
    [[maybe_unused]] const int row = callback_row();
    [[maybe_unused]] const int column = callback_col();
    [[maybe_unused]] const TableContext context = callback_context();
}

// The boxes of the theme have round corners. What stood there before, a selected row for one, would
// show through them after the table has been scrolled.
void list_table::draw_box_on_ground(int x, int y, int w, int h, Fl_Color box_color) {
    fl_rectf(x, y, w, h, parent() ? parent()->color() : color());
    fl_draw_box(FL_THIN_UP_BOX, x, y, w, h, box_color);
}

void list_table::DrawHeader(const char *text, int x, int y, int w, int h) {
    fl_push_clip(x, y, w, h);
    draw_box_on_ground(x, y, w, h, row_header_color());
    fl_color(FL_BLACK);
    fl_font(FL_HELVETICA_BOLD, 11);
    fl_draw(text, x, y, w, h, FL_ALIGN_LEFT);
    fl_pop_clip();
}

// A text that is wider than its cell is cut by the box of the next cell, which is drawn after it.
void list_table::draw_list_cell(int row, int col, int x, int y, int w, int h) {
    const bool selected = row_selected(row) > 0;
    const char *const text = text_of(row, col);
    draw_box_on_ground(x, y, w, h, selected ? FL_BLUE : FL_WHITE);
    fl_color(selected ? FL_WHITE : FL_BLACK);
    fl_draw(text, x, y, w, h, FL_ALIGN_LEFT);
}

void list_table::draw_cell(TableContext context, int row, int col, int x, int y, int w, int h) {
    fl_font(FL_HELVETICA, 11);
    switch (context) {
        case CONTEXT_STARTPAGE:
            fl_font(FL_HELVETICA, 14);
            break;
        case CONTEXT_ROW_HEADER: {
            cell_text number;
            snprintf(number, sizeof number, "%03d:", row);
            DrawHeader(number, x, y, w, h);
            break;
        }
        case CONTEXT_COL_HEADER:
            if (col >= 0 && static_cast<size_t>(col) < columns_.size()) {
                DrawHeader(columns_[static_cast<size_t>(col)].title, x, y, w, h);
            }
            break;
        case CONTEXT_CELL:
            draw_list_cell(row, col, x, y, w, h);
            break;
        default:
            break;
    }
}

void leave_with_selection(Fl_Widget *button, Fl_Table_Row &table, const choose_rows &choose,
                          int action) {
    const auto selected = [&table](int row) { return table.row_selected(row) > 0; };
    if (choose(selected, &sel_vrks) > 0) {
        vrm_gui_action = action;
    }
    button->window()->hide();
}
