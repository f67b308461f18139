// The status line of the window, `pvrm_status`, and other text in browsers.
#pragma once

class Fl_Browser;

// Adds a line, and shows it in place of the one before. The line is shown as it is: at signs begin
// no formats. Does nothing without a window.
void add_status(const char *text);

// The same after clearing.
void set_status(const char *text);

// Makes a browser show its lines as they are.
void show_plain_lines(Fl_Browser *browser);
