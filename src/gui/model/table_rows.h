// What the tables of the window have in common: their columns, the text of a cell and the names
// that a selection gives. Knows nothing of the toolkit.
#pragma once

#include <array>
#include <functional>

#include "package/vri.h"

struct table_column {
    const char *title;
    int width;          // in pixels, until the user drags its edge
    char *vri::*field;  // what it shows of the row's package; null for what is no text of it
};
using table_columns = std::array<table_column, 4>;
inline constexpr int table_row_height = 20;

// Room for the text of one cell: 255 characters and the end.
using cell_text = char[256];

// Writes the text of a cell. Null is an empty cell. A longer text is cut, before a UTF-8 character
// rather than within it, and a line end is a blank, since a second line would be drawn over the
// rows above and below.
void write_cell(const char *whole, cell_text &text);

// The same with what the column shows of a package. What the record doesn't have is empty, and so
// is a column outside the table.
void write_package_cell(const vri &package, const table_columns &columns, int column,
                        cell_text &text);

// What a button below a table does, which tells the log `said`: makes *names the names of the
// selected ones of `rows` rows, in the order of the rows, as a new array for arr_free, or null with
// none selected. What it was before is freed. The names are copies, so the array outlives the rows.
// The result is their number, and 0 also when there is no memory or a row without a name: fewer
// packages than were asked for would be no answer to what the user pressed.
int choose_names(const char *said, int rows, const std::function<bool(int row)> &selected,
                 const std::function<const char *(int row)> &name_of, char ***names);
