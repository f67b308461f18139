#include "gui/model/table_rows.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "support/array.h"
#include "support/boundary.h"
#include "support/log.h"
#include "support/own.h"

static bool continues_character(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

// How much of a text that is longer than the limit is copied. Text that is no UTF-8 is cut at the
// limit: a character has no more than three further bytes.
static size_t cut(const char *text, size_t limit) {
    size_t end = limit;
    while (end > 0 && limit - end < 3 && continues_character(text[end])) {
        end--;
    }
    return continues_character(text[end]) ? limit : end;
}

void write_cell(const char *whole, cell_text &text) {
    size_t length = whole ? strnlen(whole, sizeof text) : 0;
    if (length == sizeof text) {
        length = cut(whole, sizeof text - 1);
    }
    std::replace_copy(whole, whole + length, text, '\n', ' ');
    text[length] = '\0';
}

void write_package_cell(const vri &package, const table_columns &columns, int column,
                        cell_text &text) {
    const auto index = static_cast<size_t>(column);
    const bool shows_text = index < columns.size() && columns[index].field;
    write_cell(shows_text ? package.*columns[index].field : nullptr, text);
}

int choose_names(const char *said, int rows, const std::function<bool(int row)> &selected,
                 const std::function<const char *(int row)> &name_of, char ***names) {
    arr_free(std::exchange(*names, nullptr));
    log_say(LEVEL_INFO, "%s", said);
    return guarded(0, [&] {
        std::vector<std::string> chosen;
        for (int row = 0; row < rows; row++) {
            if (!selected(row)) {
                continue;
            }
            const char *const name = name_of(row);
            if (!name) {
                return 0;
            }
            chosen.emplace_back(name);
            log_debug("added %zu entry: <%s>", chosen.size(), name);
            log_debug("Row %d is selected: %s.", row, name);
        }
        if (chosen.empty() || !(*names = to_c_array(chosen).release())) {
            return 0;
        }
        log_debug("%zu rows were selected.", chosen.size());
        return static_cast<int>(chosen.size());
    });
}
