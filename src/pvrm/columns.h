// Aligned columns of text, measured as a terminal shows it.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

// The cells of one line, safe for a terminal.
using text_cells = std::vector<std::string>;

// The width of the widest cell of each column.
std::vector<size_t> column_widths(const std::vector<text_cells> &rows);

// A line of cells, without its end: two blanks between the columns, none at the end of the line. A
// cell that is wider than its column is cut.
std::string aligned_line(const text_cells &cells, const std::vector<size_t> &widths);

// Prints rows on stdout so that each column is as wide as its widest cell. Cells are made safe for
// a terminal. Nothing is cut.
void print_columns(const std::vector<text_cells> &rows);
