#include "pvrm/columns.h"

#include <algorithm>
#include <cstdio>

#include "support/terminal_text.h"

std::vector<size_t> column_widths(const std::vector<text_cells> &rows) {
    std::vector<size_t> widths;
    for (const text_cells &cells : rows) {
        widths.resize(std::max(widths.size(), cells.size()));
        for (size_t i = 0; i < cells.size(); i++) {
            widths[i] = std::max(widths[i], terminal_width(cells[i]));
        }
    }
    return widths;
}

std::string aligned_line(const text_cells &cells, const std::vector<size_t> &widths) {
    std::string line;
    for (size_t i = 0; i < cells.size(); i++) {
        const std::string shown = terminal_cut(cells[i], widths[i]);
        line += shown + terminal_padding(shown, widths[i] + 2);
    }
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
}

void print_columns(const std::vector<text_cells> &rows) {
    std::vector<text_cells> safe;
    for (const text_cells &cells : rows) {
        text_cells &line = safe.emplace_back();
        for (const std::string &cell : cells) {
            line.push_back(terminal_safe_cell(cell));
        }
    }
    const std::vector<size_t> widths = column_widths(safe);
    for (const text_cells &cells : safe) {
        puts(aligned_line(cells, widths).c_str());
    }
}
