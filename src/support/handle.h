// The repository handle: plain data that every layer is handed. repository/repository.h opens,
// locks and closes it.
#pragma once

#include "support/ekva.h"

struct vrm_handle {
    int arch;         // id of `arch_name`, see support/arch.h
    int locked;       // 1 while this process holds the repository lock
    char *dir;        // the repository's root
    char *conf;       // path of the configuration file used
    char *dist_name;  // may be null
    char *dist_vers;  // may be null
    // The directories by role: installed, stagearea, fileindex, certstore, scriptdir.
    s_ekva **dirs;
    s_ekva ***hooks;  // list of hook records, null when there are none
};
