#include "pvrm/terminal_table.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <numeric>
#include <string>
#include <utility>

#include "pvrm/columns.h"
#include "pvrm/terminal_ui.h"
#include "support/terminal_text.h"
#include "ui/vrmui.h"

namespace {

// The table in the making, until its end tells how wide the columns are. The heads are the first
// row.
struct {
    bool open = false;
    std::string title;
    std::vector<std::string> names;
    std::vector<size_t> asked;
    std::vector<text_cells> rows;
} table;

// The number that a text is; 0 for none.
size_t number_of(const char *text) {
    return text ? strtoul(text, nullptr, 10) : 0;
}

// Columns of the terminal that the stream is; 0 when it is none.
size_t width_of_terminal(FILE *stream) {
    if (!isatty(fileno(stream))) {
        return 0;
    }
    winsize size = {};
    if (ioctl(fileno(stream), TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
        return size.ws_col;
    }
    // A serial line doesn't know.
    const size_t told = number_of(getenv("COLUMNS"));
    return told > 0 ? told : 80;
}

}  // namespace

std::vector<size_t> fit_columns(std::vector<size_t> widths, const std::vector<size_t> &asked,
                                size_t room) {
    size_t total = std::accumulate(widths.begin(), widths.end(), size_t{0});
    if (!widths.empty()) {
        total += 2 * (widths.size() - 1);
    }
    for (size_t i = widths.size(); i-- > 0 && total > room;) {
        if (asked[i] > 0 && widths[i] > asked[i]) {
            const size_t less = std::min(widths[i] - asked[i], total - room);
            widths[i] -= less;
            total -= less;
        }
    }
    for (; total > room; total--) {
        // Of equally wide ones the last.
        const auto widest = std::max_element(widths.rbegin(), widths.rend());
        if (widest == widths.rend() || *widest <= 1) {
            break;
        }
        --*widest;
    }
    return widths;
}

int vrmui_write_table_new(vrmui_object *, const char *title, s_ekva *const *columns) {
    table = {true, title ? title : "", {}, {}, {text_cells()}};
    for (s_ekva *const *pair = ekva_first_pair(columns); pair && *pair; pair++) {
        const std::string head = terminal_safe_cell((*pair)->key);
        const size_t asked = number_of((*pair)->val);
        table.names.emplace_back((*pair)->key);
        table.asked.push_back(asked == 0 ? 0 : std::max(asked, terminal_width(head)));
        table.rows[0].push_back(head);
    }
    return 0;
}

int vrmui_write_table_add(vrmui_object *, s_ekva *const *cells, int) {
    if (!table.open) {
        return -1;
    }
    text_cells &added = table.rows.emplace_back();
    for (const std::string &name : table.names) {
        const char *value = ekva_getval(cells, name.c_str());
        added.push_back(terminal_safe_cell(value ? value : ""));
    }
    return 0;
}

int vrmui_write_table_end(vrmui_object *, const char *) {
    if (!table.open) {
        return -1;
    }
    const auto done = std::exchange(table, {});
    std::vector<size_t> widths = column_widths(done.rows);
    if (const size_t room = width_of_terminal(terminal_stream())) {
        widths = fit_columns(widths, done.asked, room);
    }
    text_cells rule;
    for (const size_t width : widths) {
        rule.emplace_back(width, '-');
    }
    std::string lines = terminal_lines(done.title.c_str());
    for (size_t i = 0; i < done.rows.size(); i++) {
        lines += aligned_line(done.rows[i], widths) + "\n";
        if (i == 0) {
            lines += aligned_line(rule, widths) + "\n";
        }
    }
    terminal_put(lines);
    return 0;
}
