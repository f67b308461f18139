#include "gui/close_button.h"

#include <FL/Fl_Button.H>
#include <FL/Fl_Multi_Browser.H>

#include "gui/state.h"
#include "gui/window.h"

void add_close_button() {
    mbclose = add_button(10, 500, 120, 25, "close", mbclose_CB);
    mbclose->deactivate();
}

void mbclose_CB(Fl_Widget * /*widget*/, void * /*data*/) {
    if (pvrm_out) {
        pvrm_out->clear();
        pvrm_out->hide();
    }
    if (mbclose) {
        mbclose->hide();
    }
}
