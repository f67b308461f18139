// The window of a pass, and the parts that screens put into it.
#pragma once

class Fl_Box;
class Fl_Button;
class Fl_Widget;

using widget_callback = void (*)(Fl_Widget *widget, void *data);

// Makes `win` with the top row, `pvrm_status` and `xvrm_image`, and leaves its group open. It opens
// where the one before it stood, the first where the window manager puts it.
void new_window();

// Ends the group and shows the window, with the command line. Every screen ends with this.
void finish_window();

// After the window has been hidden: keeps its position for the next one and deletes it, and the
// windows of before, so that a long session doesn't grow. Only a window to whose widgets the output
// of a running tool is still to come (pvrm_pending, with `pvrm_out` and `mbclose`) stays until a
// later call. These two pointers are null afterwards if their window is gone; `win` and the other
// widget globals always are, until the next new_window.
void leave_window();

// A box with a text, by default where screens tell their action. The text must stay valid.
Fl_Box *add_label(const char *text, int x = 10, int y = 35, int w = 250, int h = 25);

// A button in the looks of the window: its colour, label size 12. The label must stay valid.
Fl_Button *add_button(int x, int y, int w, int h, const char *label, widget_callback callback,
                      void *data = nullptr);

// The buttons of the top row, as far as they are there.
void all_but_deactivate();
void all_but_activate();

// Makes `mbclose`, the button of an action whose output is in the window. It is inactive: the end
// of the tool's output activates it.
void add_close_button();

// Clears and hides `pvrm_out` and hides the button, by which the logo shows again. The status line
// stays.
void mbclose_CB(Fl_Widget *widget, void *data);
