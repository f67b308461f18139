#include "gui/status_line.h"

#include <FL/Fl_Multi_Browser.H>

#include "gui/state.h"

void add_status(const char *text) {
    if (!pvrm_status) {
        return;
    }
    show_plain_lines(pvrm_status);
    pvrm_status->add(text);
    // Not as the bottom line: before it is first drawn the browser reckons with a scrollbar at its
    // bottom, and the line would be out of place.
    if (pvrm_status->size() > 1) {
        pvrm_status->topline(pvrm_status->size());
    }
}

void set_status(const char *text) {
    if (pvrm_status) {
        pvrm_status->clear();
        pvrm_status->vposition(0);
    }
    add_status(text);
}

void show_plain_lines(Fl_Browser *browser) {
    browser->format_char('\0');
}
