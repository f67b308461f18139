#include <FL/Fl_Multi_Browser.H>

#include "gui/screens.h"
#include "gui/state.h"
#include "gui/window.h"
#include "ui/vrmui.h"

bool screen_quit(int last_action) {
    pvrm_status->hide();
    finish_window();
    if (update_only || vrmui_yesno(vrmui, "Do you really want to quit?", 1) == 1) {
        return true;
    }
    vrm_gui_action = last_action;
    return false;
}
