// Messages and questions as dialogs of the toolkit.
#include <FL/fl_ask.H>

#include <cstdio>
#include <string>

#include "gui/model/message_text.h"
#include "ui/vrmui.h"

extern const char *const vrmui_backend = "FLTK";

// 1 for "Yes"; 0 for "No", which is also what the escape key and the window manager's button mean.
// The question acts as a format without arguments.
static int ask_yes_or_no(const char *question) {
    const std::string label = as_label(without_arguments(question ? question : ""));
    return fl_choice("%s", "No", "Yes", nullptr, label.c_str());
}

int vrmui_write(vrmui_object * /*ui*/, const char *text, int ask) {
    if (ask) {
        return ask_yes_or_no(text);
    }
    fl_message("%s", as_label(text ? text : "").c_str());
    return 0;
}

int vrmui_write_info(vrmui_object *ui, const char *text, int ask) {
    fprintf(stderr, "vrmui_write_info (%d) called with:\n%s\n", ask, text ? text : "");
    return vrmui_write(ui, text, ask);
}

int vrmui_yesno(vrmui_object * /*ui*/, const char *question, int default_answer) {
    return vote_mode == 3 ? default_answer : ask_yes_or_no(question);
}

// ---- What these windows don't offer; callers report it ----

int vrmui_write_table_new(vrmui_object * /*ui*/, const char * /*title*/,
                          s_ekva *const * /*columns*/) {
    return -1;
}

int vrmui_write_table_add(vrmui_object * /*ui*/, s_ekva *const * /*row*/, int /*number*/) {
    return -1;
}

int vrmui_write_table_end(vrmui_object * /*ui*/, const char * /*title*/) {
    return -1;
}

int vrmui_write_file(vrmui_object * /*ui*/, const char * /*path*/, int /*flag*/) {
    return -1;
}
