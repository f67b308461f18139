#include "gui/model/table_rows.h"

#include <algorithm>
#include <cstring>
#include <utility>

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
    const auto room = static_cast<size_t>(rows) + 2;
    own_array chosen(static_cast<char **>(calloc(room, sizeof(char *))));
    int count = 0;
    for (int row = 0; chosen && row < rows; row++) {
        if (!selected(row)) {
            continue;
        }
        const char *const name = name_of(row);
        char *const copy = name ? strdup(name) : nullptr;
        if (!copy) {
            return 0;
        }
        chosen.get()[count++] = copy;
        log_debug("added %d entry: <%s>", count, copy);
        log_debug("Row %d is selected: %s.", row, copy);
    }
    if (count > 0) {
        log_debug("%d rows were selected.", count);
        *names = chosen.release();
    }
    return count;
}
