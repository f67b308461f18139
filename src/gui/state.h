// The state of the window program. It is global because the toolkit's callbacks take no context but
// one pointer. The widgets named here belong to their window; the next pass of the loop makes new
// ones and overwrites the pointers.
#pragma once

#include <cstdio>

#include "support/ekva.h"
#include "support/handle.h"

class Fl_Box;
class Fl_Button;
class Fl_Double_Window;
class Fl_Multi_Browser;

// ---- The program ----

extern int vrm_gui_action;     // what the next pass shows, a gui_action of gui/model/tool_action.h
extern int update_only;        // 1 when the program offers nothing but updates
extern s_ekva **vrm_sys_conf;  // the system configuration, read once, kept to the end
extern vrm_handle *vrm;        // the repository
extern int gui_argc;           // the command line, which each window is shown with
extern char **gui_argv;

// ---- The present window ----

extern Fl_Double_Window *win;
// The top row; all null in update-only mode but `but_quit`.
extern Fl_Button *but_listloc, *but_install, *but_update, *but_refresh, *but_cleanup, *but_quit;
extern Fl_Multi_Browser *pvrm_status;  // one line: what goes on
extern Fl_Box *xvrm_image;             // the logo, behind all that a screen adds

// ---- The privileged tool ----

extern FILE *pvrm_file;  // the pipe from the tool; not cleared at its end
extern int pvrm_lock;    // 1 while a cleanup runs; decides nothing
// How many tools run whose output is still to come. The runner counts; while it is not 0 the window
// with `pvrm_out` and `mbclose` is not deleted.
extern int pvrm_pending;
extern char cur_action[256];        // name of the running action, for the result line
extern Fl_Multi_Browser *pvrm_out;  // the tool's output; null when its window is gone
extern Fl_Button *mbclose;          // the "close" button; null when its window is gone

// The chosen names, null-terminated, from a callback to the pass that consumes them; null when
// there are none. The names are copies, which outlive the rows on screen, and who consumes the
// array frees it with arr_free.
extern char **sel_vrks;

// The rows of the tables are in gui/model/package_rows.h and gui/model/update_rows.h.
