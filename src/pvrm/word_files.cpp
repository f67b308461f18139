#include <cerrno>
#include <cstdio>
#include <cstring>

#include "package/vrf.h"
#include "pvrm/engine_report.h"
#include "pvrm/request.h"
#include "pvrm/session.h"
#include "pvrm/tell.h"
#include "pvrm/words.h"
#include "repository/inventory.h"
#include "support/terminal_text.h"

exit_status word_files(const common_options &options, const std::string &what) {
    session work(options);
    if (names_nothing(what) || !work.open_repository()) {
        return EXIT_FAILED;
    }
    own_array paths;
    if (vrk_file_is_vrk(what.c_str())) {
        own_vri info(vrm_vrf_info(work.repository(), what.c_str(), 0));
        if (!info) {
            tell_failure("%s is not a valid package file", what.c_str());
            return EXIT_FAILED;
        }
        take_cause();
        paths.reset(vrm_vrf_index(work.repository(), what.c_str()));
        // No paths, and nothing that explains it, is a package without data.
        if (!paths && was_explained()) {
            tell_failure("the files of %s can't be listed", what.c_str());
            return EXIT_FAILED;
        }
    } else if (looks_like_file(what)) {
        tell_no_package_file(what);
        return EXIT_FAILED;
    } else if (!work.has_directories({"installed", "fileindex"})) {
        return EXIT_FAILED;
    } else {
        const vri *const info = work.installed().find(what);
        if (!info) {
            tell_problem("%s is not installed", what.c_str());
            return EXIT_FAILED;
        }
        paths.reset(vrm_vrl_file_list(work.repository(), info));
        if (!paths && errno != 0) {
            tell_problem("the files of %s can't be listed: %s", what.c_str(), strerror(errno));
            return EXIT_FAILED;
        }
    }
    for (char **path = paths.get(); path && *path; path++) {
        puts(terminal_safe_cell(*path).c_str());
    }
    return EXIT_DONE;
}
