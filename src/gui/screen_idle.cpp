#include <FL/Fl_Multi_Browser.H>

#include "gui/actions.h"
#include "gui/screens.h"
#include "gui/state.h"
#include "gui/window.h"

static constexpr char no_action[] = "No action selected";

void screen_idle() {
    pvrm_status->hide();
    add_label(no_action);
    finish_window();
}

void screen_fallback() {
    add_label(no_action);
    vrm_gui_action = ACTION_IDLE;
    finish_window();
}
