#include "ui/vrmui.h"

#include <algorithm>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/event.h"
#include "support/ldif.h"
#include "support/own.h"

vrmui_object *vrmui = nullptr;
int textmax = 65536;
int vote_mode = 2;

namespace {

// Where the text of the last call ended. A report is collected in thousands of pieces, and to look
// for the end anew each time would make it quadratic. Code may also format straight into the text,
// behind our back: that shows in the text's beginning, which either differs or ends early.
struct text_end {
    static constexpr size_t looked_through = 4096;
    const char *text = nullptr;
    size_t length = 0;
    size_t head_length = 0;
    char head[256];

    void remember(const char *now, size_t now_length) {
        text = now;
        length = now_length;
        head_length = std::min(now_length, sizeof head);
        memcpy(head, now, head_length);
    }
    bool holds_for(const vrmui_object *ui) const {
        return text && text == ui->text && length <= static_cast<size_t>(ui->text_limit) &&
               text[length] == '\0' && memcmp(text, head, head_length) == 0 &&
               !memchr(text, '\0', std::min(length, looked_through));
    }
};
text_end last_end;

// Told once for each text, as a text that is full loses all further pieces.
bool loss_told = false;

void tell_loss() {
    if (!loss_told) {
        loss_told = true;
        report({.kind = event_kind::text_cut});
    }
}

size_t text_length(const vrmui_object *ui) {
    return last_end.holds_for(ui) ? last_end.length
                                  : strnlen(ui->text, static_cast<size_t>(ui->text_limit));
}

// Doubles the text, once, if the present one and the piece don't fit into it together.
void make_room(vrmui_object *ui, size_t present, size_t piece) {
    if (static_cast<size_t>(ui->text_size) >= present + piece + 2 ||
        std::max(textmax, ui->text_size) > INT_MAX / 2) {
        return;
    }
    // The number for new objects can have been set below the size of this one.
    const int doubled = std::max(textmax, ui->text_size) * 2;
    // One byte more than the limit: a text that fills the limit keeps its terminator.
    char *grown = static_cast<char *>(
        reallocarray(ui->text, static_cast<size_t>(doubled) + 1, sizeof *grown));
    if (!grown) {
        return;
    }
    textmax = doubled;
    ui->text = grown;
    ui->text_limit = ui->text_size = doubled;
}

// Puts a piece behind the first `keep` bytes of the text, as far as the room left allows.
char *put(vrmui_object *ui, size_t present, size_t keep, const char *piece) {
    // A part of the text itself would not survive the growth.
    own_string copy;
    if (piece >= ui->text && piece <= ui->text + ui->text_limit) {
        copy.reset(strdup(piece));
        if (!copy) {
            tell_loss();
        }
        piece = copy ? copy.get() : "";
    }
    const size_t length = strlen(piece);
    make_room(ui, present, length);
    const size_t taken = std::min(length, static_cast<size_t>(ui->text_limit) - keep);
    if (taken < length) {
        tell_loss();
    }
    memcpy(ui->text + keep, piece, taken);
    ui->text[keep + taken] = '\0';
    last_end.remember(ui->text, keep + taken);
    return ui->text;
}

[[gnu::format(printf, 2, 0)]] void say(char *(*collect)(vrmui_object *, const char *),
                                       const char *format, va_list arguments) {
    char *line = nullptr;
    const int length = vasprintf(&line, format, arguments);
    if (length < 0) {
        tell_loss();
        return;
    }
    const own_string owner(line);
    // As if formatted into a block of text_limit bytes.
    const int limit = vrmui->text_limit;
    if (length >= limit) {
        line[limit - 1] = '\0';
    }
    collect(vrmui, line);
    if (length >= limit) {
        tell_loss();
    }
}

}  // namespace

vrmui_object *vrmui_init(const char *title, int level) {
    vrmui_object *ui = static_cast<vrmui_object *>(calloc(1, sizeof *ui));
    if (!ui) {
        return nullptr;
    }
    ui->first = 1;
    ui->second = 3;
    ui->level = level;
    ui->backend = strdup(vrmui_backend);
    ui->title = strdup(title ? title : "vrm");
    ui->text = static_cast<char *>(calloc(static_cast<size_t>(textmax) + 1, 1));
    ui->text_limit = ui->text_size = textmax;
    loss_told = false;
    if (!ui->backend || !ui->title || !ui->text) {
        vrmui_free(ui);
        return nullptr;
    }
    return ui;
}

void vrmui_free(vrmui_object *ui) {
    if (!ui) {
        return;
    }
    if (last_end.text == ui->text) {
        last_end.text = nullptr;
    }
    free(ui->backend);
    free(ui->title);
    free(ui->text);
    free(ui);
}

vrmui_object *vrmui_level(vrmui_object *ui, int level) {
    if (ui) {
        ui->level = level;
    }
    return ui;
}

char *vrmui_line_new(vrmui_object *ui, const char *text) {
    if (!ui) {
        return nullptr;
    }
    loss_told = false;
    return put(ui, text_length(ui), 0, text ? text : "");
}

char *vrmui_line_add(vrmui_object *ui, const char *text) {
    if (!ui) {
        return nullptr;
    }
    const size_t present = text_length(ui);
    return put(ui, present, present, text ? text : "");
}

void vrmui_say_new(const char *format, ...) {
    if (!vrmui) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    say(vrmui_line_new, format, arguments);
    va_end(arguments);
}

void vrmui_say(const char *format, ...) {
    if (!vrmui) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    say(vrmui_line_add, format, arguments);
    va_end(arguments);
}

int32_t ldif_uiwrite(const char *key, const char *value, unsigned length, unsigned binary) {
    if (!vrmui || !value) {
        return 0;
    }
    const size_t bytes = binary ? length : strlen(value);
    int32_t written = 0;
    const own_string line(
        ldif_write(nullptr, &written, key, value, static_cast<int32_t>(bytes), binary ? 1 : 0));
    if (!line) {
        report({.kind = event_kind::memory_short, .who = "ldif_uiwrite"});
        return 0;
    }
    vrmui_line_add(vrmui, line.get());
    return written;
}
