// The callbacks of the top row. They set `vrm_gui_action` and hide `win`; the work is done by the
// next pass of the loop.
#pragma once

class Fl_Widget;

void vrm_install_cb(Fl_Widget *widget, void *data);
void vrm_update_cb(Fl_Widget *widget, void *data);
void vrm_refresh_cb(Fl_Widget *widget, void *data);
void vrm_quit_cb(Fl_Widget *widget, void *data);
void vrm_listloc_cb(Fl_Widget *widget, void *data);
void vrm_cleanup_cb(Fl_Widget *widget, void *data);

// Bound to no button: the present screens offer no removal.
void vrm_remove_cb(Fl_Widget *widget, void *data);

// Bound to no widget: hides the window and leaves the action as it is.
void quit_CB(Fl_Widget *widget, void *data);
