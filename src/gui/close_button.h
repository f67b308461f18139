// The "close" button of an action whose output stands in the window.
#pragma once

class Fl_Widget;

// Makes `mbclose`, inactive: the end of the tool's output activates it.
void add_close_button();

// Clears and hides `pvrm_out` and hides the button, by which the logo shows again. The status line
// stays.
void mbclose_CB(Fl_Widget *widget, void *data);
