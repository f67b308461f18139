#include "gui/start_up.h"

#include <FL/Fl_Shared_Image.H>

#include <cstdio>

#include "gui/model/tool_action.h"
#include "gui/model/update_rows.h"
#include "gui/state.h"
#include "gui/theme.h"
#include "gui/tool.h"
#include "repository/repository.h"
#include "repository/vrc.h"
#include "support/log.h"
#include "support/own.h"
#include "support/vconf.h"
#include "transaction/recover_change.h"
#include "ui/vrmui.h"

static start_up_result read_configuration() {
    vrm_sys_conf = vconf_read(vrm_sys_conf, vrm_default_conf);
    if (!vrm_sys_conf) {
        fprintf(stderr, "Failed to read vrm config %s\n", vrm_default_conf);
        return START_UP_FAILED;
    }
    return STARTED;
}

static start_up_result make_user_interface() {
    vrmui = vrmui_init("vrm: Vorathan Package Manager", 7);
    if (!vrmui) {
        fprintf(stderr, "Failed to initualize user interface\n");
        return START_UP_FAILED;
    }
    return STARTED;
}

// Who may change the system is the tool's to say, and nobody else's.
static start_up_result ask_for_permission() {
    if (pvrm_exec(0, nullptr, nullptr) != 0) {
        vrmui_write_info(vrmui, "You are not authorized to install, update or remove software", 0);
        return START_UP_FAILED;
    }
    return STARTED;
}

static start_up_result load_backend() {
    if (!vrm_vrc_load_configured(vrm_sys_conf)) {
        log_say(LEVEL_ERROR, "Failed to load catalogue backend %s!",
                vrc_filename ? vrc_filename : "");
        return BACKEND_FAILED;
    }
    return STARTED;
}

static start_up_result open_repository() {
    vrm = vrm_open(nullptr, nullptr);
    if (!vrm) {
        log_say(LEVEL_ERROR, "Failed to open local package inventory");
        return START_UP_FAILED;
    }
    return STARTED;
}

static start_up_result connect_to_catalogue() {
    vrc = pvrm_vrc_connect(vrm_sys_conf, llog);
    if (!vrc) {
        log_say(LEVEL_ERROR, "Failed to connect to catalogue");
        vrm_vrc_close(vrc_backend_handle);
        vrm_close(vrm);
        vrm = nullptr;
        return START_UP_FAILED;
    }
    vrm_vrc_watch(vrc);
    // What the backend knew before is better than nothing.
    if (pvrm_vrc_refresh(vrc) != 0) {
        const auto limit = static_cast<size_t>(vrmui->text_limit);
        snprintf(vrmui->text, limit, "failed to refresh the catalogue\n");
        vrmui->text[limit] = '\0';
        vrmui_write_info(vrmui, vrmui->text, 0);
    }
    return STARTED;
}

// What the lists show is not what will be there after the next change.
static start_up_result report_cut_off_change() {
    char *what = nullptr;
    if (vrm_cut_off_change(vrm, &what) > 0) {
        const own_string change(what);
        const auto limit = static_cast<size_t>(vrmui->text_limit);
        snprintf(vrmui->text, limit, "The %s was cut off.\nThe next change repairs that first.\n",
                 change.get());
        vrmui->text[limit] = '\0';
        vrmui_write_info(vrmui, vrmui->text, 0);
    }
    return STARTED;
}

start_up_result start_up(int argc, char **argv) {
    gui_argc = argc;
    gui_argv = argv;
    init_theme();
    fl_register_images();
    if (asks_for_updates_only(argc > 0 ? argv[0] : nullptr)) {
        fprintf(stderr, "in update_only mode\n");
        update_only = 1;
    }
    if (const start_up_result failure = read_configuration(); failure != STARTED) {
        return failure;
    }
    llog = log_init("fltk-vrm.log", LEVEL_ERROR | LEVEL_WARNING | LEVEL_INFO,
                    LEVEL_ERROR | LEVEL_WARNING, LEVEL_ERROR, "fltk-vrm");
    for (const auto stage : {make_user_interface, ask_for_permission, load_backend, open_repository,
                             connect_to_catalogue, report_cut_off_change}) {
        if (const start_up_result failure = stage(); failure != STARTED) {
            return failure;
        }
    }
    if (update_only) {
        vrm_gui_action = ACTION_UPDATES;
    }
    return STARTED;
}
