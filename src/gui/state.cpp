#include "gui/state.h"

#include "gui/model/tool_action.h"

int vrm_gui_action = ACTION_IDLE;
int update_only = 0;
s_ekva **vrm_sys_conf = nullptr;
vrm_handle *vrm = nullptr;
int gui_argc = 0;
char **gui_argv = nullptr;

Fl_Double_Window *win = nullptr;
Fl_Button *but_listloc = nullptr;
Fl_Button *but_install = nullptr;
Fl_Button *but_update = nullptr;
Fl_Button *but_refresh = nullptr;
Fl_Button *but_cleanup = nullptr;
Fl_Button *but_quit = nullptr;
Fl_Multi_Browser *pvrm_status = nullptr;
Fl_Box *xvrm_image = nullptr;

FILE *pvrm_file = nullptr;
int pvrm_lock = 0;
int pvrm_pending = 0;
char cur_action[256] = "";
Fl_Multi_Browser *pvrm_out = nullptr;
Fl_Button *mbclose = nullptr;
char **sel_vrks = nullptr;
