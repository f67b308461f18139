#include "gui/callbacks.h"

#include <FL/Fl_Double_Window.H>

#include "gui/model/tool_action.h"
#include "gui/state.h"
#include "support/log.h"

static void say_pressed(const char *button) {
    log_debug("Somebody presssed the %s button!!\n", button);
}

static void go_to(int action) {
    vrm_gui_action = action;
    win->hide();
}

void vrm_install_cb(Fl_Widget * /*widget*/, void * /*data*/) {
    say_pressed("install");
    go_to(ACTION_SEARCH);
}

void vrm_update_cb(Fl_Widget * /*widget*/, void * /*data*/) {
    say_pressed("update");
    go_to(ACTION_UPDATES);
}

void vrm_remove_cb(Fl_Widget * /*widget*/, void * /*data*/) {
    say_pressed("remove");
    go_to(ACTION_REMOVE);
}

void vrm_refresh_cb(Fl_Widget * /*widget*/, void * /*data*/) {
    say_pressed("refresh");
    go_to(ACTION_REFRESH);
}

void vrm_quit_cb(Fl_Widget * /*widget*/, void * /*data*/) {
    say_pressed("quit");
    win->hide();
    vrm_gui_action = ACTION_QUIT;
}

void vrm_listloc_cb(Fl_Widget * /*widget*/, void * /*data*/) {
    say_pressed("listloc");
    go_to(ACTION_LIST);
}

void vrm_cleanup_cb(Fl_Widget * /*widget*/, void * /*data*/) {
    say_pressed("cleanup");
    go_to(ACTION_CLEANUP);
}

void quit_CB(Fl_Widget * /*widget*/, void * /*data*/) {
    say_pressed("quit");
    win->hide();
}
