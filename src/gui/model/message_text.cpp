#include "gui/model/message_text.h"

std::string without_arguments(const char *format) {
    std::string text;
    for (const char *at = format; *at; at++) {
        text += *at;
        if (at[0] == '%' && at[1] == '%') {
            at++;
        }
    }
    return text;
}

std::string as_label(const std::string &text) {
    std::string label;
    for (const char c : text) {
        label += c;
        if (c == '@') {
            label += c;
        }
    }
    return label;
}
