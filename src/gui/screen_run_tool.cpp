#include "gui/close_button.h"
#include "gui/model/tool_action.h"
#include "gui/screens.h"
#include "gui/state.h"
#include "gui/tool.h"
#include "gui/window.h"
#include "support/own.h"

// The chosen names count once: a window that is closed and comes back has none.
static own_array take_chosen_names() {
    own_array names(sel_vrks);
    sel_vrks = nullptr;
    return names;
}

void screen_run_tool(int action) {
    const tool_action *tool = find_tool_action(action);
    if (!tool) {
        screen_fallback();
        return;
    }
    add_label(tool->box);
    if (tool->takes_names) {
        const own_array names = take_chosen_names();
        if (names && names.get()[0]) {
            start_tool(*tool, names.get());
        } else {
            add_label("No packages selected", 10, 70);
        }
    } else {
        start_tool(*tool, nullptr);
    }
    add_close_button();
    finish_window();
}
