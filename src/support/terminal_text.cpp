#include "support/terminal_text.h"

#include <utf8proc.h>

#include <algorithm>

namespace {

struct character {
    utf8proc_int32_t code;
    size_t bytes;  // 0: no UTF-8 starts here
};

// The character at the start of a non-empty text.
character first_character(std::string_view text) {
    character found = {0, 0};
    const utf8proc_ssize_t bytes =
        utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t *>(text.data()),
                         static_cast<utf8proc_ssize_t>(text.size()), &found.code);
    found.bytes = bytes > 0 ? static_cast<size_t>(bytes) : 0;
    return found;
}

// Columns of the screen. A byte that starts no character counts as one.
size_t width_of(const character &c) {
    return c.bytes ? static_cast<size_t>(utf8proc_charwidth(c.code)) : 1;
}

// Whether a byte is a character that is shown as it is, one column wide.
bool is_plain(char c) {
    return c >= 0x20 && c < 0x7F;
}

// The length of the plain characters at the start: most text is nothing else, and needs no
// decoding.
size_t plain_run(std::string_view text) {
    return static_cast<size_t>(std::ranges::find_if_not(text, is_plain) - text.begin());
}

bool steers_the_terminal(utf8proc_int32_t code) {
    if (code == '\n' || code == '\t') {
        return false;
    }
    return code < 0x20 || (code >= 0x7F && code < 0xA0) ||  // controls, with the eight-bit ones
           code == 0x200E || code == 0x200F ||              // direction marks
           (code >= 0x202A && code <= 0x202E) ||            // embeddings and overrides
           (code >= 0x2066 && code <= 0x2069);              // isolates
}

}  // namespace

std::string terminal_safe(std::string_view text) {
    static const char digits[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(text.size());
    for (;;) {
        const size_t plain = plain_run(text);
        out += text.substr(0, plain);
        text.remove_prefix(plain);
        if (text.empty()) {
            return out;
        }
        const character next = first_character(text);
        const size_t bytes = next.bytes ? next.bytes : 1;
        if (next.bytes && !steers_the_terminal(next.code)) {
            out += text.substr(0, bytes);
        } else {
            for (const char c : text.substr(0, bytes)) {
                const unsigned value = static_cast<unsigned char>(c);
                out += {'\\', 'x', digits[value >> 4], digits[value & 15]};
            }
        }
        text.remove_prefix(bytes);
    }
}

std::string terminal_safe_cell(std::string_view text) {
    std::string cell = terminal_safe(text);
    for (char &c : cell) {
        if (c == '\n' || c == '\t') {
            c = ' ';
        }
    }
    return cell;
}

size_t terminal_width(std::string_view text) {
    size_t width = 0;
    for (;;) {
        const size_t plain = plain_run(text);
        width += plain;
        text.remove_prefix(plain);
        if (text.empty()) {
            return width;
        }
        const character next = first_character(text);
        width += width_of(next);
        text.remove_prefix(next.bytes ? next.bytes : 1);
    }
}

std::string terminal_cut(std::string_view text, size_t width) {
    if (text.size() <= width && plain_run(text) == text.size()) {
        return std::string(text);
    }
    size_t taken = 0, bytes = 0;
    size_t kept = 0;  // bytes ahead of which there is room for the mark
    while (bytes < text.size()) {
        const character next = first_character(text.substr(bytes));
        taken += width_of(next);
        if (taken > width) {
            return width == 0 ? "" : std::string(text.substr(0, kept)) + "\u2026";
        }
        bytes += next.bytes ? next.bytes : 1;
        if (taken < width) {
            kept = bytes;
        }
    }
    return std::string(text);
}

std::string terminal_padding(std::string_view text, size_t width) {
    const size_t taken = terminal_width(text);
    return std::string(taken < width ? width - taken : 0, ' ');
}
