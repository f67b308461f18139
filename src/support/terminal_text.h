// Text on its way to a terminal. What packages, catalogues and file names say is not ours, and a
// terminal obeys the escape sequences in it.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// The text with everything that could steer a terminal made visible: control characters other than
// newline and tab, bytes that are no UTF-8, and the characters that reverse the writing direction
// stand as "\xNN", byte by byte. All other text stays as it is.
std::string terminal_safe(std::string_view text);

// The same for one cell of a table: newlines and tabs become blanks.
std::string terminal_safe_cell(std::string_view text);

// Columns that a safe text of one line takes on the screen.
size_t terminal_width(std::string_view text);

// The text if it is at most that wide; else as much of its beginning as leaves room for the mark
// "…" behind it.
std::string terminal_cut(std::string_view text, size_t width);

// Blanks that fill a text up to a width; none when it is as wide.
std::string terminal_padding(std::string_view text, size_t width);
